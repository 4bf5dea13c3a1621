#include <pthread.h>

#include <ctime>

extern "C" {

// Workers wait for seconds and minutes; here they hurry.
int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* deadline);
int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* deadline) {
    constexpr long LONGEST_WAIT_NS = 10'000'000;
    constexpr long SECOND_NS = 1'000'000'000;
    timespec soon{};
    ::clock_gettime(clock, &soon);
    soon.tv_nsec += LONGEST_WAIT_NS;
    soon.tv_sec += soon.tv_nsec / SECOND_NS;
    soon.tv_nsec %= SECOND_NS;
    const bool isLater = deadline->tv_sec > soon.tv_sec ||
                         (deadline->tv_sec == soon.tv_sec && deadline->tv_nsec > soon.tv_nsec);
    return __real_pthread_cond_clockwait(condition, mutex, clock, isLater ? &soon : deadline);
}

} // extern "C"
