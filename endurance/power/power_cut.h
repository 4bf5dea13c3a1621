// Cuts the power in items' lives.
#ifndef POWER_CUT_H
#define POWER_CUT_H

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "recording.h"
#include "service.h"
#include "tracked_item.h"

namespace Endurance {

struct Plan {
    Format format;
    Strategies strategies;
    Start start;
    int failingSync; // which one, 0: none
};

// Lets items live once each and looks at every state that a cut of the power may leave of them. Owned and
// used by main's thread.
class PowerCut {
public:
    // Sets up each that many-th state only.
    explicit PowerCut(int every) : m_every(every) {}

    void RunAll();
    // What was seen, as one line.
    std::string Text() const;
    bool HasPassed() const { return m_losses == 0 && m_states > 0; }

private:
    using State = std::vector<std::pair<std::string, DiskFile::Content>>; // by name

    void Run(const Plan& plan);
    void Live(TrackedItem& item, bool isGood);
    void LiveWithFailingSync(TrackedItem& item, int sync);
    static void AwaitSave(TrackedItem& item);
    void CloseConnection(TrackedItem& item);

    // All states after each event; a cut of the first kind is followed by another one in the recovery.
    void CutAfterEach(Disk disk, const std::vector<Event>& events, bool isFirst);
    void TryStates(const Disk& disk, const TrackedItem& known, bool isFirst);
    void Try(const State& state, TrackedItem item, bool isFirst);

    const int m_every;
    Service m_service{};
    std::unique_ptr<appcfg::Connection> m_connection = std::make_unique<appcfg::Connection>();
    std::mt19937 m_random{1};
    std::string m_point{}; // which life
    int m_directories = 0;
    int m_seen = 0; // states, also those that are not set up
    int m_lives = 0;
    int m_points = 0;
    int m_states = 0;
    int m_secondStates = 0;
    int m_losses = 0;
};

} // namespace Endurance

#endif
