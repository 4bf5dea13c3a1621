// A service that crashes again and again.
#ifndef CRASH_LANE_H
#define CRASH_LANE_H

#include <future>
#include <mutex>
#include <set>

#include "file_changes.h"
#include "support/host_process.h"
#include "tracked_item.h"

namespace Endurance {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Of this many rounds one waits for the saves of the timing strategy, which take a minute. None of the first
// ones does, so that a short run is short.
constexpr uint32_t LONG_ROUND_EVERY = 100;
// Of the others, in percent: those that wait for the saves of the delay strategy, and those in which the
// service is told to end and killed while it does.
constexpr int DELAY_ROUNDS = 12;
constexpr int ENDING_ROUNDS = 8;
// How often a cut file is met by a second kill while it is recovered, in percent.
constexpr int RECOVERY_KILLS = 40;

// Some tens of KB between the first and the last number: a write of many pages can be cut at each.
constexpr int PLACES = 17;
constexpr size_t FILLER_BYTES = 4000;

constexpr milliseconds BEFORE_DELAYED_SAVE{2950};
constexpr milliseconds BEFORE_TIMED_SAVE{59500};

// Bounds of a drawn moment: changes of files until the kill, and the lag behind the last of them, of the
// order of the time that one save needs between emptying its file and having written it.
constexpr int MOST_CHANGES = 30;
constexpr int MOST_LAG_MICROSECONDS = 120;

// What the rounds of all lanes met; the second crashes of a round are not among the kills.
struct Tally {
    std::atomic<int> kills{0};
    std::atomic<int> killsInSaves{0}; // which cut a file or a backup
};

// One service with a directory of its own, its items and one client. Owned by the program, which gives each
// lane a thread; nothing is shared but the tally and the environment, whose lock is inside.
class Lane {
public:
    // The directory is made here.
    Lane(const std::string& build, const std::string& directory, bool twice, Tally& tally) :
        m_host(build, OpenDirectory(directory)), m_itemDirectory(OpenDirectory(directory + "/items")),
        m_twice(twice), m_tally(tally) {
        for (const Format& format : FORMATS) {
            for (const auto strategy :
                 {ConfigStrategy::INSTANT, ConfigStrategy::DELAY, ConfigStrategy::TIMING}) {
                if (format.storage != ConfigStorageType::INI) {
                    const std::string name = format.name + std::to_string(static_cast<int>(strategy));
                    m_items.emplace_back(appcfg::Handle("life", name), format, Strategies{strategy, strategy},
                                         Document(format.storage, PLACES, FILLER_BYTES));
                    m_items.back().StandIn(m_itemDirectory);
                    m_items.back().WriteFiles(Start::NEITHER, false);
                }
            }
        }
    }

    // The service runs, and each item's file and backup are whole: also how each round ends.
    void Begin() {
        StartHost();
        CreateAll();
        MendAll();
    }

    // Changes, a kill, a start, and the check of every item; in the mode that crashes twice, all of it again
    // before anything is mended. Throws when the service loses or refuses what it should not, or ends by
    // itself.
    void Round(uint32_t seed, uint32_t number) {
        m_round = number;
        std::seed_seq seeds{seed, number};
        m_dice.seed(seeds);

        Crash();
        m_tally.killsInSaves += LookAtFiles() ? 1 : 0;
        m_tally.kills += m_killed ? 1 : 0;
        if (!ItemsWhere(&TrackedItem::HasCutFile).empty() && m_dice.Chance(RECOVERY_KILLS)) {
            // The kill finds the copying of a backup over a file that is cut.
            StartHost();
            KillDuring({m_dice.Draw(1, 2), DrawLag(), milliseconds(100)}, false, [&] { CreateAll(); });
            LookAtFiles();
        }
        Start();
        if (m_twice) {
            ChangeUntilKilled(true);
            LookAtFiles();
            Start();
        }
        MendAll();
    }

    // The service ends in good order.
    void End() {
        m_connection.reset();
        const int status = m_host.Stop();
        Require(status == 0, "the service ended with status " + std::to_string(status));
    }

private:
    using Items = std::vector<TrackedItem*>;

    void Crash() {
        if (m_round % LONG_ROUND_EVERY == LONG_ROUND_EVERY - 1 && m_round > LONG_ROUND_EVERY) {
            AwaitSave(ConfigStrategy::TIMING, BEFORE_TIMED_SAVE);
        } else if (m_dice.Chance(DELAY_ROUNDS)) {
            AwaitSave(ConfigStrategy::DELAY, BEFORE_DELAYED_SAVE);
        } else if (m_dice.Chance(ENDING_ROUNDS)) {
            // The kill finds the last saves of a service that was told to end.
            SendToAll({ConfigStrategy::INSTANT, ConfigStrategy::DELAY, ConfigStrategy::TIMING});
            KillDuring({m_dice.Draw(1, MOST_CHANGES), DrawLag(), milliseconds(300)}, true,
                       [&] { ::kill(m_host.Pid(), SIGTERM); });
        } else {
            ChangeUntilKilled(false);
        }
    }

    // The kill finds the service at anything that a client can make it do; or at the first save after the
    // start, preferably of an item whose backup is cut.
    void ChangeUntilKilled(bool prefersCut) {
        const KillMoment moment = prefersCut ? KillMoment{m_dice.Draw(1, 2), microseconds(0), seconds(1)}
                                  : m_dice.Chance(80)
                                      ? KillMoment{m_dice.Draw(1, MOST_CHANGES), DrawLag(), seconds(1)}
                                      : KillMoment{0, microseconds(0), microseconds(m_dice.Draw(0, 60000))};
        const Items cut = ItemsWhere(&TrackedItem::HasCutBackup);
        KillDuring(moment, false, [&] {
            for (;;) {
                ChangeOne(prefersCut && !cut.empty() ? *cut[m_dice.Pick(cut.size())]
                                                     : m_items[m_dice.Pick(m_items.size())]);
            }
        });
    }

    // A change that is just announced is saved by the end as well.
    void ChangeOne(TrackedItem& item) {
        const int kind = m_dice.Draw(1, 100);
        if (kind <= 45) {
            item.SendRaw(*m_connection);
        } else if (kind <= 70) {
            item.SendSet(*m_connection);
        } else if (kind <= 95) {
            if (m_dice.Chance(50)) {
                item.SendSet(*m_connection);
            }
            if (m_dice.Chance(60)) {
                item.Delete(*m_connection);
            }
            item.Create(*m_connection);
            const bool isSaved = item.HoldsSaved(*m_connection);
            Require(isSaved, "not saved by its end: " + item.Describe());
        } else {
            m_connection->Close();
            Connect();
            CreateAll();
        }
    }

    void SendToAll(const std::set<ConfigStrategy>& strategies) {
        for (TrackedItem& item : m_items) {
            if (strategies.count(item.Description().saveStrategy) > 0) {
                m_dice.Chance(50) ? item.SendRaw(*m_connection) : item.SendSet(*m_connection);
            }
        }
    }

    // The kill finds the saves that a strategy makes on its own.
    void AwaitSave(ConfigStrategy strategy, milliseconds after) {
        const KillMoment moment =
            m_dice.Chance(80) ? KillMoment{m_dice.Draw(1, 10), DrawLag(), after + seconds(2)}
                              : KillMoment{0, microseconds(0), after + milliseconds(m_dice.Draw(0, 1200))};
        KillDuring(moment, false, [&] { SendToAll({strategy}); });
    }

    // Works until the service is killed at the moment, or the work is done and the moment comes.
    void KillDuring(const KillMoment& moment, bool mayEnd, const std::function<void()>& work) {
        const FileChanges changes(m_itemDirectory);
        const std::future<void> killer = std::async(std::launch::async, [&] {
            changes.Await(moment);
            m_host.SendKill();
        });
        try {
            work();
        } catch (const appcfg::ConnectionError&) {
            // Killed before it was done.
        }
        killer.wait();
        m_connection.reset();
        const int status = m_host.Wait();
        m_killed = status != 0;
        if (status == 0 && mayEnd) {
            for (TrackedItem& item : m_items) {
                item.NoteEnd(0);
            }
        } else {
            Require(status == Support::HostProcess::SIGNALLED + SIGKILL,
                    "the service ended by itself with status " + std::to_string(status));
        }
    }

    // Whether any is cut.
    bool LookAtFiles() {
        for (TrackedItem& item : m_items) {
            item.NoteCrash();
            item.LookAtFiles();
        }
        return !ItemsWhere(&TrackedItem::HasCutFile).empty() ||
               !ItemsWhere(&TrackedItem::HasCutBackup).empty();
    }

    // Starts the service, creates every item and checks it.
    void Start() {
        StartHost();
        CreateAll();
        for (TrackedItem& item : m_items) {
            const bool isSaved = item.HoldsSaved(*m_connection);
            Require(isSaved, "round " + std::to_string(m_round) + ": lost: " + item.Describe() + "; log " +
                                 m_host.LogPath());
        }
    }

    // A cut backup stays cut until it is next written, and a crash before that would be a second one.
    void MendAll() {
        for (TrackedItem& item : m_items) {
            if (m_twice || item.HasCutBackup()) {
                const std::string trouble = item.SaveWhole(*m_connection);
                Require(trouble.empty(), trouble);
                item.Create(*m_connection);
            }
        }
    }

    // With a log of its own.
    void StartHost() {
        std::filesystem::remove(m_host.LogPath());
        m_host.Start();
        Connect();
    }

    // The framework root is told by the environment, which all lanes share.
    void Connect() {
        static std::mutex environment;
        const std::lock_guard<std::mutex> lock(environment);
        ::setenv("KESTREL_ROOT", m_host.Root().c_str(), 1);
        m_connection = std::make_unique<appcfg::Connection>();
    }

    void CreateAll() {
        for (TrackedItem& item : m_items) {
            item.Create(*m_connection);
        }
    }

    Items ItemsWhere(bool (TrackedItem::*holds)() const) {
        Items items;
        for (TrackedItem& item : m_items) {
            if ((item.*holds)()) {
                items.push_back(&item);
            }
        }
        return items;
    }

    microseconds DrawLag() {
        return microseconds(m_dice.Chance(50) ? 0 : m_dice.Draw(0, MOST_LAG_MICROSECONDS));
    }

    Support::HostProcess m_host;
    const std::string m_itemDirectory;
    const bool m_twice;
    Tally& m_tally;
    std::unique_ptr<appcfg::Connection> m_connection;
    std::vector<TrackedItem> m_items;
    Dice m_dice{};
    uint32_t m_round = 0;
    bool m_killed = false; // the last life did not end in good order
};

} // namespace Endurance

#endif
