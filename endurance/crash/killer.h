// Kills a service at a moment that was drawn.
#ifndef CRASH_KILLER_H
#define CRASH_KILLER_H

#include <chrono>
#include <string>
#include <thread>

#include "support/host_process.h"

namespace Endurance {

using Support::HostProcess;

// When to kill: with the given change of a watched file (a save changes its file twice: it is emptied, then
// written; 0: only by time), and then a little later; at the latest when the time is over.
struct KillMoment {
    int fileChange = 0;
    std::chrono::microseconds lag{0};
    std::chrono::microseconds latest{0};
};

// Owns a thread that waits for the moment, from construction until Join.
// Used by the lane that owns the service, which does not reap the process before Join.
class Killer {
public:
    // Watches the files of the directory.
    Killer(const HostProcess& host, const std::string& directory, const KillMoment& moment);
    Killer(const Killer&) = delete;
    Killer& operator=(const Killer&) = delete;
    ~Killer();

    // Returns when the kill was sent.
    void Join() { m_thread.join(); }

private:
    void Run();
    void AwaitFileChange();

    const HostProcess& m_host;
    const KillMoment m_moment;
    const std::chrono::steady_clock::time_point m_deadline;
    int m_watch;
    std::thread m_thread;
};

} // namespace Endurance

#endif
