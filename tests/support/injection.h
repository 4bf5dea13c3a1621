// Fault injection: the linker sends the calls of a program through here first, which makes them fail, one
// chosen call at a time, or tells a watcher of them.
#ifndef TESTS_SUPPORT_INJECTION_H
#define TESTS_SUPPORT_INJECTION_H

#include <string>
#include <sys/types.h>

namespace FaultTest {

// Each with its name in reports; from CAPGET on they are in service_calls.cpp. FREE_BLOCKS: the file system
// has none left; ROOM: nor any that can be reserved.
#define FAULT_TEST_CALLS(CALL)                                                                               \
    CALL(OPEN, "open"), CALL(WRITE, "write"), CALL(FSYNC, "fsync"), CALL(CLOSE, "close"),                    \
        CALL(READ, "read"), CALL(TRUNCATE, "ftruncate"), CALL(FSTAT, "fstat"), CALL(STAT, "stat"),           \
        CALL(FREE_BLOCKS, "free blocks"), CALL(ROOM, "room"), CALL(THREAD, "thread"),                        \
        CALL(ALLOCATION, "allocation"), CALL(CIPHER_ALLOCATION, "cipher allocation"),                        \
        CALL(CAPGET, "capget"), CALL(PRCTL, "prctl"), CALL(GETPWNAM_R, "getpwnam_r"),                        \
        CALL(SETGID, "setgid"), CALL(SETUID, "setuid"), CALL(CAPSET, "capset"),                              \
        CALL(EVENT_MGR_NEW, "event manager"), CALL(SERVER_REGISTER, "registration"), CALL(IOCTL, "ioctl"),   \
        CALL(MESSAGE_NEW, "message"), CALL(MESSAGE_SENDFD, "send"), CALL(CONTENT, "content"),                \
        CALL(CONTENT_ADD, "content added"), CALL(POOL, "pool"), CALL(COPY, "copy"), CALL(PARSE_PATH, "path")
#define FAULT_TEST_ENUMERATOR(call, name) call
enum class Call { FAULT_TEST_CALLS(FAULT_TEST_ENUMERATOR) };

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
    Exempt() { ++t_depth; }
    ~Exempt() { --t_depth; }
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;

    inline static thread_local int t_depth = 0;
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

// A call that goes on to the real one unless it is to fail.
#define FORWARDED(result, name, call, failure, parameters, arguments)                                        \
    result __real_##name parameters;                                                                         \
    result __wrap_##name parameters {                                                                        \
        return FaultTest::Fails(FaultTest::Call::call) ? failure : __real_##name arguments;                  \
    }

bool IsInForce(Call call);
// The error of the fault in force.
int ErrorInForce();

} // namespace FaultTest

#endif
