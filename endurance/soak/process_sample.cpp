#include "process_sample.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Endurance {

namespace {

// What the median of the run's last quarter may be above that of its second: a part of it, and a size.
// The number of items, their documents and the threads' heaps wander by that much. A leak of four bytes in
// each request is more within ten minutes.
// Sanitizers keep freed memory and the history of accesses, until these are full.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double MAX_GROWTH = 0.5;
constexpr double MAX_GROWTH_MIB = 50;
#else
constexpr double MAX_GROWTH = 0.1;
constexpr double MAX_GROWTH_MIB = 1;
#endif

// The number behind a name in a file of /proc.
double NumberIn(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, name.size(), name) == 0) {
            return std::stod(line.substr(name.size()));
        }
    }
    throw std::runtime_error(path + " has no line " + name);
}

double MedianMemory(const std::vector<ProcessSample>& samples, size_t from, size_t to) {
    std::vector<double> values;
    for (size_t i = from; i < to; ++i) {
        values.push_back(samples[i].memory);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

ProcessSample SampleProcess(pid_t pid) {
    const std::string directory = "/proc/" + std::to_string(pid);
    ProcessSample sample;
    sample.memory = NumberIn(directory + "/status", "VmRSS:") / 1024;
    sample.threads = NumberIn(directory + "/status", "Threads:");
    const std::filesystem::directory_iterator descriptors(directory + "/fd");
    sample.descriptors = static_cast<double>(std::distance(begin(descriptors), end(descriptors)));
    return sample;
}

std::string FaultOfMemory(const std::vector<ProcessSample>& samples) {
    const size_t quarter = samples.size() / 4;
    if (quarter == 0) {
        return "the run was too short to see memory";
    }
    const double before = MedianMemory(samples, quarter, 2 * quarter);
    const double after = MedianMemory(samples, 3 * quarter, samples.size());
    char text[120];
    std::snprintf(text, sizeof text, "memory grew from %.1f MiB (second quarter) to %.1f MiB (last quarter)",
                  before, after);
    return after > before * (1 + MAX_GROWTH) + MAX_GROWTH_MIB ? text : "";
}

} // namespace Endurance
