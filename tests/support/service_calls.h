// Calls of the service's start-up and of its framework, which an injection makes fail.
#ifndef TESTS_SUPPORT_SERVICE_CALLS_H
#define TESTS_SUPPORT_SERVICE_CALLS_H

#include <string>
#include <vector>

#include "injection.h"
#include "kestrel/kestrel.h"

namespace ServiceTest {

using FaultTest::Call;
using FaultTest::Injection;

// The calls that would change this process for good (groups, users, capabilities) only succeed or fail;
// what they and the ones around them were given, in order, since the last call of this.
std::vector<std::string> TakePrivilegedCalls();

// The event manager that was made last.
kestrel_event_mgr* LastEventMgr();

} // namespace ServiceTest

#endif
