// power_cut [EVERY]: cuts the power after each file call of items' lives, in each way that a file system may
// take it, and gives what is left to the service; with a number, to each that many-th state only.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "power_cut.h"

int main(int argc, char** argv) {
    try {
        const int every = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 1;
        Endurance::PowerCut cut(every);
        cut.RunAll();
        std::printf("%s\n", cut.Text().c_str());
        return cut.HasPassed() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "power_cut: %s\n", fault.what());
        return EXIT_FAILURE;
    }
}
