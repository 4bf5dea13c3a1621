// Fault injection: the linker sends the calls of a program through here first, which makes them fail, one
// chosen call at a time, or tells a watcher of them.
#ifndef TESTS_SUPPORT_INJECTION_H
#define TESTS_SUPPORT_INJECTION_H

#include <string>
#include <sys/types.h>

namespace FaultTest {

enum class Call {
    OPEN,
    WRITE,
    FSYNC,
    CLOSE,
    READ,
    TRUNCATE,
    FSTAT,
    STAT,
    FREE_BLOCKS, // the file system has none left
    ROOM,        // nor any that can be reserved
    THREAD,
    ALLOCATION,
    CIPHER_ALLOCATION,
    // in service_calls.cpp
    CAPGET,
    PRCTL,
    GETPWNAM_R,
    SETGID,
    SETUID,
    CAPSET,
    EVENT_MGR_NEW,
    SERVER_REGISTER,
    IOCTL,
    MESSAGE_NEW,
    MESSAGE_SENDFD,
    CONTENT,
    CONTENT_ADD,
    POOL,
    COPY,
    PARSE_PATH,
};

// As an error number: half of the bytes are written, and the count says so.
constexpr int SHORT_WRITE = -1;

// The call of this kind that fails, counted from 1, and whether all after it fail as well.
struct Fault {
    Call call;
    int at = 1;
    bool forEver = false;
    int error = 0; // allocations have none
};
std::string Described(const Fault& fault);

// While it lives, the fault is in force for every thread that is not exempt. One at a time.
class Injection {
public:
    explicit Injection(const Fault& fault);
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;
};

// How many calls have failed since the last injection began.
int Failures();

// While it lives, nothing fails on this thread.
class Exempt {
public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
};

// A call that was made and may change a file, or what a power cut leaves of one.
struct FileCall {
    enum Kind { OPEN, WRITE, TRUNCATE, SYNC, CLOSE, REMOVE };
    Kind kind;
    int fd;                     // -1 of one that failed
    const char* path = nullptr; // of OPEN and REMOVE
    int flags = 0;              // of OPEN
    bool isNew = false;         // the file came to be
    const void* data = nullptr; // of WRITE
    ssize_t size = 0;           // written, or the length that is left
    off_t at = -1;              // of WRITE; -1 where the descriptor stands
};

// Who sees those calls of all threads; nobody at first.
void Watch(void (*watcher)(const FileCall&));

// Counts a call of this thread; true when it is to fail, with errno set.
bool Fails(Call call);
bool IsInForce(Call call);
// The error of the fault in force.
int ErrorInForce();

} // namespace FaultTest

#endif
