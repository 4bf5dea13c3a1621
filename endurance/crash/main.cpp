// Crashes the service in many ways at once and tells what was lost: crash_harness --help.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lane.h"

namespace {

using Endurance::Counts;
using Endurance::Lane;
using Endurance::Phase;
using Lanes = std::vector<std::unique_ptr<Lane>>;

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
};

std::atomic<uint32_t> nextRound{0};
std::atomic<bool> failed{false};
std::atomic<bool> interrupted{false};

// Each lane finishes its round.
void Interrupt(int) {
    interrupted = true;
}

void RunLane(Lane& lane, uint32_t rounds) {
    try {
        lane.Begin();
        while (!failed && !interrupted) {
            const uint32_t round = nextRound++;
            if (round >= rounds) {
                break;
            }
            lane.Round(round);
        }
        lane.End();
    } catch (const std::exception& fault) {
        std::printf("failed: %s\n", fault.what());
        failed = true;
    }
}

Lanes RunLanes(const Run& run) {
    Lanes lanes;
    for (unsigned index = 0; index < std::min(run.lanes, run.rounds); ++index) {
        lanes.push_back(std::make_unique<Lane>(
            Lane::Settings{run.build, run.directory + "/lane" + std::to_string(index), run.seed, run.twice}));
    }
    std::vector<std::thread> threads;
    for (const auto& lane : lanes) {
        threads.emplace_back(RunLane, std::ref(*lane), run.rounds);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return lanes;
}

Counts Print(const char* title, const Lanes& lanes, Phase phase) {
    Counts sum;
    for (const auto& lane : lanes) {
        for (const auto& [name, count] : lane->Seen(phase)) {
            sum[name] += count;
        }
    }
    std::printf("\n%s\n", title);
    for (const auto& [name, count] : sum) {
        std::printf("%-36s %8d\n", name.c_str(), count);
    }
    return sum;
}

// The exit status.
int Crash(const Run& run) {
    std::signal(SIGPIPE, SIG_IGN);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, Interrupt);
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto begin = std::chrono::steady_clock::now();
    const Lanes lanes = RunLanes(run);
    const auto time = std::chrono::steady_clock::now() - begin;

    std::printf("%u rounds, %u lanes, seed %u, %.0f s\n", std::min(nextRound.load(), run.rounds), run.lanes,
                run.seed, std::chrono::duration<double>(time).count());
    Counts first = Print("crash", lanes, Endurance::FIRST);
    Print("crash while a file is recovered", lanes, Endurance::RECOVERING);
    int unforeseen = first[Endurance::UNFORESEEN];
    if (run.twice) {
        unforeseen +=
            Print("second crash, before the next backup", lanes, Endurance::SECOND)[Endurance::UNFORESEEN];
    }
    const bool missed =
        first[Endurance::KILLS] >= KILLS_THAT_MEET_SAVES && first[Endurance::KILLS_IN_SAVES] == 0;
    if (missed) {
        std::printf("failed: no kill met a save\n");
    }
    if (failed || missed || unforeseen > 0) {
        return 1;
    }
    return interrupted ? EXIT_INTERRUPTED : 0;
}

int RunHarness(int argc, char** argv) {
    Run run;
    CLI::App app("Kills the service at random moments and checks that nothing reported as saved is lost.");
    app.add_option("build", run.build, "build directory with the service")->required();
    app.add_option("directory", run.directory, "where the services live")->required();
    app.add_option("rounds", run.rounds);
    app.add_flag("--twice", run.twice, "crash again before anything is mended, and count what that loses");
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
    try {
        return RunHarness(argc, argv);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "crash_harness: %s\n", fault.what());
        return 1;
    }
}
