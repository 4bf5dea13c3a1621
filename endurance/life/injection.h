// Calls of the service's threads that a driver makes fail, one chosen call at a time, or watches.
#ifndef LIFE_INJECTION_H
#define LIFE_INJECTION_H

#include <string>
#include <sys/types.h>

namespace Endurance {

enum class Call { OPEN, WRITE, FSYNC, CLOSE, READ, TRUNCATE, FSTAT, STAT, ALLOCATION, CIPHER_ALLOCATION };

// As an error number: half of the bytes are written, and the count says so.
constexpr int SHORT_WRITE = -1;

// The call of this kind that fails, counted from 1, and whether all after it fail as well.
struct Fault {
    Call call;
    int at;
    bool forEver;
    int error; // allocations have none
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
    int fd;
    const char* path; // of OPEN and REMOVE
    int flags;        // of OPEN
    bool isNew;       // the file came to be
    const void* data; // of WRITE
    ssize_t size;     // written, or the length that is left
    off_t at;         // of WRITE; -1 where the descriptor stands
};

// Who sees those calls of all threads; nobody at first.
void Watch(void (*watcher)(const FileCall&));

// Counts a call of this thread; true when it is to fail, with errno set.
bool Fails(Call call);
// The error of the fault in force.
int ErrorInForce();

} // namespace Endurance

#endif
