#ifndef SOAK_RUN_H
#define SOAK_RUN_H

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "process_sample.h"
#include "support/host_process.h"
#include "tally.h"

namespace Endurance {

// One run: a service of its own, its clients on a thread each, and what is seen of it meanwhile, printed as
// a table. Owned and used by main's thread.
class SoakRun {
public:
    // The service of that build, with the directory as its framework root and for the clients' files. What
    // becomes true ends the run early.
    SoakRun(const std::string& build, const std::string& directory, double seconds, unsigned seed,
            const std::atomic<bool>& interrupted) :
        m_host(build, directory),
        m_seconds(seconds), m_seed(seed), m_interrupted(interrupted) {}

    // What went wrong first, or nothing.
    std::string Run();

    const std::vector<ProcessSample>& Samples() const { return m_samples; }
    std::string Counts() const { return m_tally.Text(); }

private:
    using Clock = std::chrono::steady_clock;

    void ServeClients();
    template <class Client>
    void Start(Client& client);
    void Watch();
    void TakeSample(double seconds);
    void PrintRow();
    void ExpectAllReleased(const ProcessSample& before);

    Support::HostProcess m_host;
    const double m_seconds;
    const unsigned m_seed;
    const std::atomic<bool>& m_interrupted;
    Tally m_tally;
    std::vector<std::thread> m_threads;
    std::atomic<unsigned> m_running{0};
    std::vector<ProcessSample> m_samples;
    size_t m_printed = 0; // samples that are in the table
};

} // namespace Endurance

#endif
