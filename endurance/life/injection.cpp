#include "injection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace Endurance {

namespace {

// Read by threads of the service that go on while one fault ends and the next begins.
std::atomic<int> g_call{-1};
std::atomic<int> g_left{0}; // calls until the first that fails
std::atomic<bool> g_forEver{false};
std::atomic<int> g_error{0};
std::atomic<int> g_failures{0};

thread_local int t_exempt = 0;

std::atomic<void (*)(const FileCall&)> g_watcher{nullptr};

void Tell(const FileCall& call) {
    if (void (*const watcher)(const FileCall&) = g_watcher) {
        const int error = errno;
        watcher(call);
        errno = error;
    }
}

// How far this thread's clock is ahead, in nanoseconds: what it has waited less than it wanted.
thread_local int64_t t_ahead = 0;

const char* Name(Call call) {
    static constexpr const char* NAMES[] = {"open",      "write", "fsync", "close",      "read",
                                            "ftruncate", "fstat", "stat",  "allocation", "cipher allocation"};
    return NAMES[static_cast<int>(call)];
}

std::string ErrorText(int error) {
    return error == 0 ? "" : error == SHORT_WRITE ? ", short" : std::string(", ") + std::strerror(error);
}

} // namespace

std::string Described(const Fault& fault) {
    return std::string(Name(fault.call)) + " " + std::to_string(fault.at) +
           (fault.forEver ? " and all after it" : "") + ErrorText(fault.error);
}

Injection::Injection(const Fault& fault) {
    g_failures = 0;
    g_left = fault.at;
    g_forEver = fault.forEver;
    g_error = fault.error;
    g_call = static_cast<int>(fault.call);
}

Injection::~Injection() {
    g_call = -1;
}

int Failures() {
    return g_failures;
}

Exempt::Exempt() {
    ++t_exempt;
}

Exempt::~Exempt() {
    --t_exempt;
}

void Watch(void (*watcher)(const FileCall&)) {
    g_watcher = watcher;
}

bool Fails(Call call) {
    if (g_call != static_cast<int>(call) || t_exempt > 0) {
        return false;
    }
    const int left = --g_left;
    if (left > 0 || (left < 0 && !g_forEver)) {
        return false;
    }
    ++g_failures;
    errno = std::max(g_error.load(), 0);
    return true;
}

int ErrorInForce() {
    return g_error;
}

} // namespace Endurance

using Endurance::Call;
using Endurance::Fails;
using Endurance::FileCall;
using Endurance::t_ahead;
using Endurance::Tell;

extern "C" {

// A call that goes on to the real one unless it is to fail.
#define FORWARDED(result, name, call, parameters, arguments)                                                 \
    result __real_##name parameters;                                                                         \
    result __wrap_##name parameters {                                                                        \
        return Fails(Call::call) ? -1 : __real_##name arguments;                                             \
    }

FORWARDED(ssize_t, read, READ, (int fd, void* to, size_t size), (fd, to, size))
FORWARDED(ssize_t, pread64, READ, (int fd, void* to, size_t size, off64_t at), (fd, to, size, at))
#if __SIZEOF_POINTER__ == 4
FORWARDED(int, __fstat64_time64, FSTAT, (int fd, void* status), (fd, status))
#endif
FORWARDED(int, fstat64, FSTAT, (int fd, void* status), (fd, status))

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Fails(Call::OPEN)) {
        return -1;
    }
    const bool isNew = (flags & O_CREAT) != 0 && ::access(path, F_OK) != 0;
    const int fd = __real_open64(path, flags, mode);
    Tell({FileCall::OPEN, fd, path, flags, isNew, nullptr, 0, 0});
    return fd;
}

ssize_t __real_write(int fd, const void* from, size_t size);
ssize_t __wrap_write(int fd, const void* from, size_t size) {
    ssize_t written = -1;
    if (!Fails(Call::WRITE)) {
        written = __real_write(fd, from, size);
    } else if (Endurance::ErrorInForce() == Endurance::SHORT_WRITE) {
        written = __real_write(fd, from, size / 2);
    }
    Tell({FileCall::WRITE, fd, nullptr, 0, false, from, written, -1});
    return written;
}

ssize_t __real_pwrite64(int fd, const void* from, size_t size, off_t at);
ssize_t __wrap_pwrite64(int fd, const void* from, size_t size, off_t at) {
    const ssize_t written = Fails(Call::WRITE) ? -1 : __real_pwrite64(fd, from, size, at);
    Tell({FileCall::WRITE, fd, nullptr, 0, false, from, written, at});
    return written;
}

int __real_ftruncate64(int fd, off_t length);
int __wrap_ftruncate64(int fd, off_t length) {
    const int result = Fails(Call::TRUNCATE) ? -1 : __real_ftruncate64(fd, length);
    Tell({FileCall::TRUNCATE, result == 0 ? fd : -1, nullptr, 0, false, nullptr, static_cast<ssize_t>(length),
          0});
    return result;
}

// Nothing here outlives the machine: what is written need not reach a disk.
int __wrap_fsync(int fd) {
    const bool isSynced = !Fails(Call::FSYNC);
    Tell({FileCall::SYNC, isSynced ? fd : -1, nullptr, 0, false, nullptr, 0, 0});
    return isSynced ? 0 : -1;
}

// The descriptor is gone also when closing it fails.
int __real_close(int fd);
int __wrap_close(int fd) {
    Tell({FileCall::CLOSE, fd, nullptr, 0, false, nullptr, 0, 0});
    const int result = __real_close(fd);
    return Fails(Call::CLOSE) ? -1 : result;
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
    const int result = __real_unlink(path);
    Tell({FileCall::REMOVE, -1, path, 0, false, nullptr, 0, 0});
    return result;
}

// Workers wait for seconds and minutes; here they hurry, each by a clock of its own.
std::chrono::steady_clock::time_point RealNow() __asm__("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point HurriedNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point HurriedNow() {
    return RealNow() + std::chrono::nanoseconds(t_ahead);
}

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

// These stand before the C library's for the whole process, so that the file library's own tests fail too.
// Under names of their own, since the headers declare them otherwise.
#define INTERPOSED_STAT(function, symbol)                                                                    \
    extern "C" int function(const char* path, void* status) __asm__(symbol);                                 \
    int function(const char* path, void* status) {                                                           \
        using Stat = int (*)(const char*, void*);                                                            \
        static const Stat next = reinterpret_cast<Stat>(dlsym(RTLD_NEXT, symbol));                           \
        return Fails(Call::STAT) ? -1 : next(path, status);                                                  \
    }

INTERPOSED_STAT(InterposedStat64, "stat64")
#if __SIZEOF_POINTER__ == 4
INTERPOSED_STAT(InterposedStat64Time64, "__stat64_time64")
#endif
