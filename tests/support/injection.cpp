#include "injection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace FaultTest {

namespace {

// Read by threads of the service that go on while one fault ends and the next begins.
std::atomic<int> g_call{-1};
std::atomic<int> g_left{0}; // calls until the first that fails
std::atomic<bool> g_forEver{false};
std::atomic<int> g_error{0};
std::atomic<int> g_failures{0};

std::atomic<void (*)(const FileCall&)> g_watcher{nullptr};

void Tell(const FileCall& call) {
    if (void (*const watcher)(const FileCall&) = g_watcher) {
        const int error = errno;
        watcher(call);
        errno = error;
    }
}

#define NAME(call, name) name
constexpr const char* NAMES[] = {FAULT_TEST_CALLS(NAME)};

std::string ErrorText(int error) {
    return error == 0 ? "" : error == SHORT_WRITE ? ", short" : std::string(", ") + std::strerror(error);
}

} // namespace

std::string Described(const Fault& fault) {
    return std::string(NAMES[static_cast<int>(fault.call)]) + " " + std::to_string(fault.at) +
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

void Watch(void (*watcher)(const FileCall&)) {
    g_watcher = watcher;
}

bool Fails(Call call) {
    if (g_call != static_cast<int>(call) || Exempt::t_depth > 0) {
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

bool IsInForce(Call call) {
    return g_call == static_cast<int>(call);
}

int ErrorInForce() {
    return g_error;
}

} // namespace FaultTest

using FaultTest::Call;
using FaultTest::Fails;
using FaultTest::FileCall;
using FaultTest::Tell;

extern "C" {

FORWARDED(ssize_t, read, READ, -1, (int fd, void* to, size_t size), (fd, to, size))
FORWARDED(ssize_t, pread64, READ, -1, (int fd, void* to, size_t size, off64_t at), (fd, to, size, at))
#if __SIZEOF_POINTER__ == 4
FORWARDED(int, __fstat64_time64, FSTAT, -1, (int fd, void* status), (fd, status))
#endif
FORWARDED(int, fstat64, FSTAT, -1, (int fd, void* status), (fd, status))

// Callers that make no file pass no mode, and none is looked at then.
int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, mode_t mode) {
    if (Fails(Call::OPEN)) {
        return -1;
    }
    const bool isNew = (flags & O_CREAT) != 0 && ::access(path, F_OK) != 0;
    const int fd = __real_open64(path, flags, mode);
    Tell({FileCall::OPEN, fd, path, flags, isNew});
    return fd;
}

ssize_t __real_write(int fd, const void* from, size_t size);
ssize_t __wrap_write(int fd, const void* from, size_t size) {
    ssize_t written = -1;
    if (!Fails(Call::WRITE)) {
        written = __real_write(fd, from, size);
    } else if (FaultTest::ErrorInForce() == FaultTest::SHORT_WRITE) {
        written = __real_write(fd, from, size / 2);
    }
    Tell({FileCall::WRITE, fd, nullptr, 0, false, from, written});
    return written;
}

ssize_t __real_pwrite64(int fd, const void* from, size_t size, off64_t at);
ssize_t __wrap_pwrite64(int fd, const void* from, size_t size, off64_t at) {
    const ssize_t written = Fails(Call::WRITE) ? -1 : __real_pwrite64(fd, from, size, at);
    Tell({FileCall::WRITE, fd, nullptr, 0, false, from, written, at});
    return written;
}

int __real_ftruncate64(int fd, off64_t length);
int __wrap_ftruncate64(int fd, off64_t length) {
    const int result = Fails(Call::TRUNCATE) ? -1 : __real_ftruncate64(fd, length);
    Tell({FileCall::TRUNCATE, result == 0 ? fd : -1, nullptr, 0, false, nullptr,
          static_cast<ssize_t>(length)});
    return result;
}

// Nothing here outlives the machine: what is written need not reach a disk.
int __wrap_fsync(int fd) {
    const bool isSynced = !Fails(Call::FSYNC);
    Tell({FileCall::SYNC, isSynced ? fd : -1});
    return isSynced ? 0 : -1;
}

// The descriptor is gone also when closing it fails.
int __real_close(int fd);
int __wrap_close(int fd) {
    Tell({FileCall::CLOSE, fd});
    const int result = __real_close(fd);
    return Fails(Call::CLOSE) ? -1 : result;
}

int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
    const int result = __real_unlink(path);
    Tell({FileCall::REMOVE, -1, path});
    return result;
}

// A disk that is full to the last block, or keeps the last ones for those who ask for them by name.
int __real_statvfs64(const char* path, struct statvfs64* status);
int __wrap_statvfs64(const char* path, struct statvfs64* status) {
    const int result = __real_statvfs64(path, status);
    if (FaultTest::IsInForce(Call::ROOM) || FaultTest::IsInForce(Call::FREE_BLOCKS)) {
        status->f_bavail = 0;
    }
    return result;
}

FORWARDED(int, fallocate64, ROOM, -1, (int fd, int mode, off64_t at, off64_t length), (fd, mode, at, length))

// Stands before the C library's for the whole process, the C++ library included.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return Fails(Call::THREAD) ? EAGAIN : next(thread, attributes, run, argument);
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
