#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

#include "app.h"

int main(int argc, char** argv) {
    // A reader that goes away is a failed write, and no reason to die in the middle of a request.
    std::signal(SIGPIPE, SIG_IGN);
    std::ios::sync_with_stdio(false);
    try {
        const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
        return appcfg::cli::RunApp(words, {std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "appcfg: %s\n", error.what());
        return appcfg::cli::EXIT_REFUSED;
    }
}
