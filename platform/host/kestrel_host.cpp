// The system-server process: loads one service's library and runs its entry on the main thread.
#include <dlfcn.h>
#include <fcntl.h>
#include <getopt.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "../src/limits.h"
#include "kestrel/kestrel_host.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;
constexpr unsigned NO_GROUP = UINT_MAX;

constexpr char USAGE[] = "Usage: kestrel_host [OPTION]... LIBRARY [SYMBOL]\n"
                         "Loads LIBRARY, calls SYMBOL (CreateAppCfgMgmtService) and returns its result.\n"
                         "\n"
                         "      --socket-mode MODE    octal mode of the service's socket (0666)\n"
                         "      --socket-group GROUP  its group, a name or a number (the process's own)\n"
                         "      --help                this text\n";

struct Options {
    unsigned mode = 0666;
    unsigned group = NO_GROUP;
    const char* library = nullptr;
    const char* symbol = "CreateAppCfgMgmtService";
};

[[noreturn]] void EndWithUsage(const char* problem, const char* value) {
    std::fprintf(stderr, "kestrel_host: %s%s; see --help\n", problem, value);
    std::exit(EXIT_USAGE);
}

// The whole text as a number up to the maximum, or -1.
long long ParseNumber(const char* text, int base, long long maximum) {
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, base);
    return errno != 0 || end == text || *end != '\0' || value < 0 || value > maximum ? -1 : value;
}

unsigned ParseMode(const char* text) {
    const long long mode = ParseNumber(text, 8, 0777);
    if (mode < 0) {
        EndWithUsage("not an octal mode up to 0777: ", text);
    }
    return static_cast<unsigned>(mode);
}

unsigned ParseGroup(const char* text) {
    const long long number = ParseNumber(text, 10, NO_GROUP - 1);
    if (number >= 0) {
        return static_cast<unsigned>(number);
    }
    std::vector<char> buffer(64 * 1024);
    group found{};
    group* result = nullptr;
    if (::getgrnam_r(text, &found, buffer.data(), buffer.size(), &result) != 0 || result == nullptr) {
        EndWithUsage("no such group: ", text);
    }
    return found.gr_gid;
}

Options ParseArguments(int argc, char** argv) {
    enum { MODE = 1, GROUP, HELP };
    static const option LONG_OPTIONS[] = {{"socket-mode", required_argument, nullptr, MODE},
                                          {"socket-group", required_argument, nullptr, GROUP},
                                          {"help", no_argument, nullptr, HELP},
                                          {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0;
    for (int found = 0; (found = ::getopt_long(argc, argv, "+:", LONG_OPTIONS, nullptr)) != -1;) {
        switch (found) {
        case MODE:
            options.mode = ParseMode(optarg);
            break;
        case GROUP:
            options.group = ParseGroup(optarg);
            break;
        case HELP:
            std::fputs(USAGE, stdout);
            std::exit(EXIT_SUCCESS);
        default:
            EndWithUsage(found == ':' ? "needs a value: " : "unknown option: ", argv[optind - 1]);
        }
    }
    if (optind == argc || argc - optind > 2) {
        EndWithUsage("expected a library and at most one symbol", "");
    }
    options.library = argv[optind];
    if (optind + 1 < argc) {
        options.symbol = argv[optind + 1];
    }
    return options;
}

// A standard descriptor that is closed would become a file of the service, and the log would be written into
// it. It is opened the wrong way round, so that reading or writing fails as before.
void OccupyStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) {
            std::abort();
        }
    }
}

// Up or down: what connections can take of memory rests on it.
void SetDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, Kestrel::MAX_DESCRIPTORS);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// The library stays loaded until the process ends: its threads and exit handlers may still run in it.
int RunService(const Options& options) {
    void* library = ::dlopen(options.library, RTLD_NOW);
    if (library == nullptr) {
        std::fprintf(stderr, "kestrel_host: %s\n", ::dlerror());
        return EXIT_FAILED;
    }
    void* symbol = ::dlsym(library, options.symbol);
    if (symbol == nullptr) {
        std::fprintf(stderr, "kestrel_host: %s has no %s\n", options.library, options.symbol);
        return EXIT_FAILED;
    }
    using Entry = int (*)();
    return reinterpret_cast<Entry>(symbol)();
}

} // namespace

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    const Options options = ParseArguments(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    SetDescriptorLimit();
    kestrel_socket_access(options.mode, options.group);
    // A request to stop that comes while the service starts, or again while it ends, is heard in order.
    kestrel_catch_stop_signals();
    return RunService(options);
}
