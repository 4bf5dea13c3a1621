// What the crash harness counts.
#ifndef CRASH_COUNTS_H
#define CRASH_COUNTS_H

#include <array>
#include <cstddef>

namespace Endurance {

enum Strategy : size_t { INSTANT, DELAY, TIMING, STRATEGIES };

// One number for each strategy.
struct Tally {
    std::array<int, STRATEGIES> of{};

    int Sum() const { return of[INSTANT] + of[DELAY] + of[TIMING]; }
    void operator+=(const Tally& other) {
        for (size_t strategy = 0; strategy < STRATEGIES; ++strategy) {
            of[strategy] += other.of[strategy];
        }
    }
};

// What crashes left, and what the starts after them made of it.
struct Counts {
    int kills = 0;
    int killsInSaves = 0; // kills that cut a file or a backup
    Tally cutFiles{};
    Tally cutBackups{};
    Tally behind{}; // both whole, but with different numbers
    Tally fromBackup{};
    Tally fromDefault{};
    Tally losses{};
    int unforeseen = 0; // losses of items whose backup was whole before the crash

    void operator+=(const Counts& other) {
        kills += other.kills;
        killsInSaves += other.killsInSaves;
        cutFiles += other.cutFiles;
        cutBackups += other.cutBackups;
        behind += other.behind;
        fromBackup += other.fromBackup;
        fromDefault += other.fromDefault;
        losses += other.losses;
        unforeseen += other.unforeseen;
    }
};

} // namespace Endurance

#endif
