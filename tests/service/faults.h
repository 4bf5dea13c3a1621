// Calls of the service that a test can make fail. The linker sends each of them through here first.
#ifndef TESTS_SERVICE_FAULTS_H
#define TESTS_SERVICE_FAULTS_H

#include <string>
#include <vector>

#include "kestrel/kestrel.h"

namespace ServiceTest {

enum class Call {
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
    OPEN,
    FREE_BLOCKS,
    ROOM,
    PARSE_PATH,
    THREAD,
    COUNT
};

// While it lives, the call fails once, after so many that go through.
class Failing {
public:
    explicit Failing(Call call, int after = 0);
    ~Failing();
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;

private:
    const Call m_call;
};

// The calls that would change this process for good (groups, users, capabilities) only succeed or fail;
// what they and the ones around them were given, in order, since the last call of this.
std::vector<std::string> TakePrivilegedCalls();

// The event manager that was made last.
kestrel_event_mgr* LastEventMgr();

} // namespace ServiceTest

#endif
