// What kestrel_host loads in its tests: entries that tell what they find.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>

#include "kestrel/kestrel.h"

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
    struct sigaction action {};
    rlimit limit{};
    ::sigaction(SIGPIPE, nullptr, &action);
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return (action.sa_handler == SIG_IGN ? 0 : 1) |
           (limit.rlim_cur == std::min<rlim_t>(limit.rlim_max, 1024) ? 0 : 2) |
           (::fcntl(STDIN_FILENO, F_GETFD) == 0 ? 0 : 4);
}
}
