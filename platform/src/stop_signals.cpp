#include "stop_signals.h"

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>

#include "limits.h"

namespace Kestrel {

namespace {

// Guards what follows, except for what the handler reads. Taken alone.
std::mutex g_mutex;
std::size_t g_loops = 0;
struct sigaction g_formerTerm;
struct sigaction g_formerInt;

// Read by the handler. A slot holds 1 + the descriptor, 0 when it is free.
std::atomic<int> g_slots[MAX_RUNNING_LOOPS];
std::atomic<int> g_inHandler{0};
std::atomic<int> g_untilExit{0};
std::atomic<int> g_come{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler uses it");

void OnSignal(int) {
    const int kept = errno;
    ++g_inHandler;
    if (g_untilExit != 0) {
        g_come = 1;
    }
    for (std::atomic<int>& slot : g_slots) {
        const std::uint64_t one = 1;
        const int fd = slot.load() - 1;
        // Only a full counter can fail, and then the loop is woken already.
        if (fd >= 0 && ::write(fd, &one, sizeof one) < 0) {
            continue;
        }
    }
    --g_inHandler;
    errno = kept;
}

void Install() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGTERM, &action, &g_formerTerm);
    ::sigaction(SIGINT, &action, &g_formerInt);
}

} // namespace

void StopSignals::CatchUntilExit() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (g_untilExit.exchange(1) == 0 && g_loops++ == 0) {
        Install();
    }
}

bool StopSignals::HaveCome() {
    return g_come != 0;
}

StopSignals::StopSignals(int eventFd) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    while (m_slot < MAX_RUNNING_LOOPS && g_slots[m_slot].load() != 0) {
        ++m_slot;
    }
    if (m_slot == MAX_RUNNING_LOOPS) {
        return;
    }
    g_slots[m_slot] = eventFd + 1;
    m_caught = true;
    if (g_loops++ == 0) {
        Install();
    }
}

StopSignals::~StopSignals() {
    if (!m_caught) {
        return;
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (--g_loops == 0) {
        ::sigaction(SIGTERM, &g_formerTerm, nullptr);
        ::sigaction(SIGINT, &g_formerInt, nullptr);
    }
    g_slots[m_slot] = 0;
    while (g_inHandler.load() > 0) { // a handler on another thread may still hold the descriptor's number
        ::sched_yield();
    }
}

} // namespace Kestrel
