#ifndef KESTREL_STOP_SIGNALS_H
#define KESTREL_STOP_SIGNALS_H

#include <cstddef>

namespace Kestrel {

// While one lives, SIGTERM and SIGINT wake the loop that waits for this eventfd; several loops of one
// process each have theirs. Owned by a running loop; the process's former dispositions return with the
// last one. No signal is blocked.
class StopSignals {
public:
    explicit StopSignals(int eventFd);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // For a host process: catches the signals from now on. Any thread.
    static void CatchUntilExit();
    // One came since then: no loop is to run any more.
    static bool HaveCome();

    // False when too many loops run.
    bool AreCaught() const { return m_caught; }

private:
    std::size_t m_slot = 0;
    bool m_caught = false;
};

} // namespace Kestrel

#endif
