// A service that crashes again and again.
#ifndef CRASH_LANE_H
#define CRASH_LANE_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "file_changes.h"
#include "support/host_process.h"
#include "tracked_item.h"

namespace Endurance {

// What crashes left, and what the starts after them made of it, by name.
using Counts = std::map<std::string, int>;
constexpr char KILLS[] = "kills";
constexpr char KILLS_IN_SAVES[] = "kills inside a save"; // which cut a file or a backup
constexpr char UNFORESEEN[] = "losses though the backup was whole";

// What the rounds' crashes left, those that met a recovery, and the second ones of the mode that crashes
// twice.
enum Phase : size_t { FIRST, RECOVERING, SECOND, PHASES };

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

    const Counts& Seen(Phase phase) const { return m_seen[phase]; }

private:
    void Crash();
    void ChangeUntilKilled(bool prefersCut);
    void ChangeOne(TrackedItem& item);
    void EndAndCreate(TrackedItem& item);
    void SendEither(TrackedItem& item);
    void AwaitSave(SystemServer::ConfigSaveStrategy strategy, std::chrono::milliseconds after);
    void EndMidway();
    void CrashInRecovery();
    // Works until the service is killed at the moment, or the work is done and the moment comes.
    template <class Work>
    void KillDuring(const KillMoment& moment, bool mayEnd, Work work);
    void InspectFiles(Phase phase);

    // Starts the service, creates every item and checks it.
    void Start(Phase phase);
    void CountRecoveries(Counts& counts);
    bool IsExposed(const TrackedItem& item) const;
    void TellLoss(const TrackedItem& item);
    void MendAll();

    void StartHost();
    void Connect();
    void CreateAll();
    std::vector<TrackedItem*> ItemsWhere(bool (TrackedItem::*holds)() const);
    std::string ItemDirectory() const { return m_settings.directory + "/items"; }
    int Draw(int least, int most) { return std::uniform_int_distribution<int>(least, most)(m_random); }
    bool Chance(int percent) { return Draw(1, 100) <= percent; }
    std::chrono::microseconds DrawLag();

    const Settings m_settings;
    Support::HostProcess m_host;
    std::unique_ptr<appcfg::Connection> m_connection;
    std::vector<TrackedItem> m_items;
    std::array<Counts, PHASES> m_seen{};
    std::mt19937 m_random{};
    uint32_t m_round = 0;
    std::vector<TrackedItem*> m_exposed; // their backups were cut by the crash before this one
    bool m_killed = false;               // the last life did not end in good order
};

} // namespace Endurance

#endif
