#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

#include "app.h"

namespace {

// A standard descriptor that is closed would become the connection's, and results would be sent to the
// service. It is opened the wrong way round, so that reading or writing fails as before.
void OccupyStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) {
            std::abort();
        }
    }
}

bool WantsColours() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

} // namespace

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    // A reader that goes away is a failed write, and no reason to die in the middle of a request.
    std::signal(SIGPIPE, SIG_IGN);
    std::ios::sync_with_stdio(false);
    try {
        const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
        return appcfg::cli::RunApp(
            words, {std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1,
                    isatty(STDOUT_FILENO) == 1, isatty(STDERR_FILENO) == 1, WantsColours()});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "appcfg: %s\n", error.what());
        return appcfg::cli::EXIT_REFUSED;
    }
}
