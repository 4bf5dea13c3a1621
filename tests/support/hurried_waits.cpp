// A hurried clock: strategies wait for seconds and minutes, and a test must not. A wait takes ten
// milliseconds at most; what it leaves out is added to this thread's own clock from then on, so that the
// deadlines that a worker computes stay as far apart as it believes.
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>

namespace {

// How far this thread's clock is ahead, in nanoseconds.
thread_local int64_t t_ahead = 0;

} // namespace

std::chrono::steady_clock::time_point RealNow() __asm__("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point HurriedNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point HurriedNow() {
    return RealNow() + std::chrono::nanoseconds(t_ahead);
}

extern "C" {

int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* deadline);
int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* deadline) {
    constexpr int64_t LONGEST_WAIT_NS = 10'000'000;
    constexpr int64_t SECOND_NS = 1'000'000'000;
    timespec now{};
    ::clock_gettime(clock, &now);
    const int64_t begin = now.tv_sec * SECOND_NS + now.tv_nsec;
    const int64_t left = deadline->tv_sec * SECOND_NS + deadline->tv_nsec - t_ahead - begin;
    const int64_t end = begin + std::min(left, LONGEST_WAIT_NS);
    const timespec soon{static_cast<time_t>(end / SECOND_NS), static_cast<long>(end % SECOND_NS)};
    const int result = __real_pthread_cond_clockwait(condition, mutex, clock, &soon);
    if (result == ETIMEDOUT && left > LONGEST_WAIT_NS) {
        t_ahead += left - LONGEST_WAIT_NS;
    }
    return result;
}

} // extern "C"
