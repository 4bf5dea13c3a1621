// What the programs share: how they end, what they draw, the directories that they make.
#ifndef LIFE_PROGRAM_H
#define LIFE_PROGRAM_H

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

namespace Endurance {

// Whether the program was asked to end, since it takes notice of that.
inline std::atomic<bool> g_interrupted{false};
inline void NoteInterrupts() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, [](int) { g_interrupted = true; });
    }
}

// The status of the program's work; 1 when it throws.
inline int RunProgram(int argc, char** argv, int (*work)(int, char**)) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        return work(argc, argv);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "%s: %s\n", argv[0], fault.what());
        return EXIT_FAILURE;
    }
}

// Numbers that a seed gives. A plain value, used by one thread.
class Dice : public std::mt19937 {
public:
    using std::mt19937::mt19937;
    int Draw(int least, int most) { return std::uniform_int_distribution<int>(least, most)(*this); }
    bool Chance(int percent) { return Draw(1, 100) <= percent; }
    unsigned Pick(size_t below) { return static_cast<unsigned>((*this)() % below); }
};

inline void Require(bool holds, const std::string& trouble) {
    if (!holds) {
        throw std::runtime_error(trouble);
    }
}

// The service in the sandbox is another user.
inline std::string OpenDirectory(const std::string& path) {
    std::filesystem::create_directories(path);
    std::filesystem::permissions(path, std::filesystem::perms::all);
    return path;
}

} // namespace Endurance

#endif
