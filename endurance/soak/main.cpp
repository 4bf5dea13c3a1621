// soak BUILD DIRECTORY SECONDS TABLE [SEED]: the service of a build serves many clients, in the sandbox; what
// it held meanwhile becomes a table.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <random>
#include <string>

#include "soak_run.h"

namespace Endurance {

namespace {

std::atomic<bool> interrupted{false};

void Interrupt(int) {
    interrupted = true;
}

int Main(const std::string& build, const std::string& directory, double seconds, const std::string& table,
         unsigned seed) {
    ::setenv("KESTREL_ROOT", directory.c_str(), 1);
    // The service would outlive a run that just ends.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, Interrupt);
    }
    SoakRun run(build, directory, seconds, seed, interrupted);
    const std::string failure = run.Run();
    std::printf("met, or answered as expected:\n%s", run.Counts().c_str());
    std::ofstream rows(table);
    for (const ProcessSample& sample : run.Samples()) {
        rows << sample.seconds << ' ' << sample.memory << ' ' << sample.threads << ' ' << sample.descriptors
             << ' ' << sample.rate << '\n';
    }
    if (!failure.empty()) {
        std::printf("FAILED: %s\n", failure.c_str());
        return EXIT_FAILURE;
    }
    std::printf("no wrong reply, memory level, threads and descriptors released\n");
    return EXIT_SUCCESS;
}

} // namespace

} // namespace Endurance

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: soak BUILD DIRECTORY SECONDS TABLE [SEED]\n");
        return 2;
    }
    try {
        const unsigned seed = argc == 6 ? static_cast<unsigned>(std::stoul(argv[5])) : std::random_device()();
        return Endurance::Main(argv[1], argv[2], std::stod(argv[3]), argv[4], seed);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "soak: %s\n", fault.what());
        return EXIT_FAILURE;
    }
}
