// fault_sweep [--brief] [FORMAT]: every file call and allocation of items' lives fails in turn, of one format
// or of all; briefly, each 37th allocation and each call with one of its errors.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "fault_sweep.h"

int main(int argc, char** argv) {
    try {
        const bool isBrief = argc > 1 && std::string(argv[1]) == "--brief";
        const std::string wanted = argc > (isBrief ? 2 : 1) ? argv[argc - 1] : "";
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        Endurance::FaultSweep sweep(isBrief);
        for (const Endurance::Format& format : Endurance::FORMATS) {
            if (wanted.empty() || wanted == format.name) {
                sweep.Run(format);
            }
        }
        std::printf("%s\n", sweep.Text().c_str());
        return sweep.HasPassed() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "fault_sweep: %s\n", fault.what());
        return EXIT_FAILURE;
    }
}
