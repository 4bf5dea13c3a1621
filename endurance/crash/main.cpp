// Crashes the service in many ways at once and tells what was lost: crash_harness --help.
#include <CLI/CLI.hpp>

#include <deque>

#include "lane.h"

namespace {

using namespace Endurance;

// Most of a round is waiting, for a disk or for a strategy.
constexpr unsigned LANES_PER_CORE = 4;
constexpr unsigned MOST_LANES = 16;

// So many kills meet some saves, or the harness has missed its mark: about a third do.
constexpr int KILLS_THAT_MEET_SAVES = 50;

constexpr int EXIT_INTERRUPTED = 130;

struct Run {
    std::string build;
    std::string directory;
    uint32_t rounds = 2000;
    uint32_t seed = std::random_device()();
    bool twice = false;
    unsigned lanes = std::min(MOST_LANES, LANES_PER_CORE* std::max(1U, std::thread::hardware_concurrency()));
    Tally tally{};
    std::atomic<uint32_t> nextRound{0};
    std::atomic<bool> failed{false};
};

// Finishes its round when the program is asked to end.
void RunLane(Run& run, Lane& lane) {
    try {
        lane.Begin();
        while (!run.failed && !g_interrupted) {
            const uint32_t round = run.nextRound++;
            if (round >= run.rounds) {
                break;
            }
            lane.Round(run.seed, round);
        }
        lane.End();
    } catch (const std::exception& fault) {
        std::printf("failed: %s\n", fault.what());
        run.failed = true;
    }
}

// The exit status.
int Crash(Run& run) {
    std::signal(SIGPIPE, SIG_IGN);
    NoteInterrupts();
    const auto begin = std::chrono::steady_clock::now();
    std::deque<Lane> lanes;
    for (unsigned index = 0; index < std::min(run.lanes, run.rounds); ++index) {
        lanes.emplace_back(run.build, run.directory + "/lane" + std::to_string(index), run.twice, run.tally);
    }
    std::vector<std::thread> threads;
    for (Lane& lane : lanes) {
        threads.emplace_back([&run, &lane] { RunLane(run, lane); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    const Tally& tally = run.tally;
    std::printf("%u rounds, %u lanes, seed %u, %.0f s\nkills %d, inside a save %d, %s\n",
                std::min(run.nextRound.load(), run.rounds), run.lanes, run.seed, time.count(),
                tally.kills.load(), tally.killsInSaves.load(), run.failed ? "failed" : "losses 0");
    if (tally.kills >= KILLS_THAT_MEET_SAVES && tally.killsInSaves == 0) {
        std::printf("failed: no kill met a save\n");
        run.failed = true;
    }
    return run.failed ? EXIT_FAILURE : g_interrupted ? EXIT_INTERRUPTED : EXIT_SUCCESS;
}

int RunHarness(int argc, char** argv) {
    Run run;
    CLI::App app("Kills the service at random moments and checks that nothing reported as saved is lost.");
    app.add_option("build", run.build, "build directory with the service")->required();
    app.add_option("directory", run.directory, "where the services live")->required();
    app.add_option("rounds", run.rounds);
    app.add_flag("--twice", run.twice, "crash again before anything is mended");
    app.add_option("--seed", run.seed, "of the moments and changes that are drawn");
    app.add_option("--lanes", run.lanes, "services at the same time");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return Crash(run);
}

} // namespace

int main(int argc, char** argv) {
    return Endurance::RunProgram(argc, argv, RunHarness);
}
