// A service that crashes again and again.
#ifndef CRASH_LANE_H
#define CRASH_LANE_H

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "counts.h"
#include "killer.h"
#include "support/host_process.h"
#include "tracked_item.h"

namespace Endurance {

// One service with a directory of its own, its items and one client. Owned by the program, which gives each
// lane a thread; nothing is shared but the environment, whose lock is inside.
class Lane {
public:
    struct Settings {
        std::string build;
        std::string directory; // made here
        uint32_t seed = 0;
        bool twice = false;
    };

    explicit Lane(Settings settings);

    // The service runs, and each item's file and backup are whole: also how each round ends.
    void Begin();

    // Changes, a kill, a start, and the check of every item; in the mode that crashes twice, all of it again
    // before anything is mended. Throws when the service refuses what it should not, or ends by itself.
    void Round(uint32_t number);

    // The service ends in good order.
    void End();

    // What the rounds' crashes left, those that met a recovery, and the second ones of the mode that crashes
    // twice.
    const Counts& First() const { return m_first; }
    const Counts& Recovering() const { return m_recovering; }
    const Counts& Second() const { return m_second; }

private:
    using Random = std::mt19937;

    void Crash(Random& random);
    void ChangeUntilKilled(Random& random);
    void ChangeOne(Random& random, TrackedItem& item);
    void EndAndCreate(Random& random, TrackedItem& item);
    void SendEither(Random& random, TrackedItem& item);
    void AwaitSave(Random& random, Strategy strategy, std::chrono::milliseconds after);
    void EndMidway(Random& random);
    void CrashInRecovery(Random& random);
    void Reap(bool mayEnd);
    void InspectFiles(Counts& counts);

    // Starts the service, creates every item and checks it.
    void Start(Counts& counts);
    void CountRecoveries(Counts& counts) const;
    bool IsExposed(const TrackedItem& item) const;
    void TellLoss(const TrackedItem& item);
    void MendAll();
    void Mend(TrackedItem& item);

    void StartHost();
    void Connect();
    void CreateAll();
    TrackedItem& PickItem(Random& random);
    std::vector<const TrackedItem*> ItemsWhere(bool (TrackedItem::*holds)() const) const;
    std::string ItemDirectory() const { return m_settings.directory + "/items"; }

    static Strategy StrategyOf(const TrackedItem& item);

    const Settings m_settings;
    HostProcess m_host;
    std::unique_ptr<appcfg::Connection> m_connection;
    std::vector<TrackedItem> m_items;
    Counts m_first;
    Counts m_recovering;
    Counts m_second;
    uint32_t m_round = 0;
    std::vector<const TrackedItem*> m_exposed; // their backups were cut by the crash before this one
    bool m_killed = false;                     // the last life did not end in good order
    bool m_preferCut = false;                  // changes go to the items whose backups are cut
};

} // namespace Endurance

#endif
