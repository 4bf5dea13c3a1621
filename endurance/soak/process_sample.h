#ifndef PROCESS_SAMPLE_H
#define PROCESS_SAMPLE_H

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Endurance {

// What a process holds at one moment.
struct ProcessSample {
    double seconds = 0; // since the run began
    double memory = 0;  // resident, in MiB
    double descriptors = 0;
    double threads = 0;
    uint64_t replies = 0; // of the whole run
    double rate = 0;      // replies per second since the sample before
};

// Reads memory, descriptors and threads from /proc; the rest is the caller's.
ProcessSample SampleProcess(pid_t pid);

// Why the memory of the run is not level, or nothing when it is.
std::string FaultOfMemory(const std::vector<ProcessSample>& samples);

} // namespace Endurance

#endif
