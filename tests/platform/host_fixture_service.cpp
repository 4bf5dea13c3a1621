// What kestrel_host loads in its tests: entries that tell what they find.
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <cstddef>

#include "kestrel/kestrel.h"

namespace {

bool IgnoresPipeSignal() {
    struct sigaction action {};
    return ::sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

bool HasRaisedDescriptors() {
    rlimit limit{};
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur > 200;
}

bool GivesThreadsSmallStacks() {
    pthread_attr_t attributes;
    std::size_t size = 0;
    ::pthread_getattr_default_np(&attributes);
    ::pthread_attr_getstacksize(&attributes, &size);
    ::pthread_attr_destroy(&attributes);
    return size <= std::size_t{2} << 20;
}

} // namespace

extern "C" {

int CreateAppCfgMgmtService() {
    return 7;
}

// Is asked to stop before its loop runs, and again behind it.
int StopEarly() {
    kestrel_event_mgr* mgr = kestrel_event_mgr_new(0);
    ::raise(SIGTERM);
    const int result = kestrel_event_mgr_run(mgr, -1);
    ::raise(SIGTERM);
    return 20 + result;
}

// A bit for each thing that is not as a service expects it.
int TellWhatIsMissing() {
    return (IgnoresPipeSignal() ? 0 : 1) | (HasRaisedDescriptors() ? 0 : 2) |
           (GivesThreadsSmallStacks() ? 0 : 4);
}
}
