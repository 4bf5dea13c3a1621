// Calls of the service's threads that a test makes fail, one chosen call at a time.
#ifndef TESTS_FAULTS_INJECTION_H
#define TESTS_FAULTS_INJECTION_H

#include <string>

namespace FaultTest {

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

// Counts a call of this thread; true when it is to fail, with errno set.
bool Fails(Call call);
// The error of the fault in force.
int ErrorInForce();

} // namespace FaultTest

#endif
