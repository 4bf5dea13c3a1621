#include "lane.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace Endurance {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;

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

constexpr Strategies STRATEGIES[] = {
    {ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {ConfigSaveStrategy::DELAY, ConfigBackupStrategy::DELAY},
    {ConfigSaveStrategy::TIMING, ConfigBackupStrategy::TIMING},
};

constexpr milliseconds BEFORE_DELAYED_SAVE{2950};
constexpr milliseconds BEFORE_TIMED_SAVE{59500};

// Bounds of a drawn moment: changes of files until the kill, and the lag behind the last of them, of the
// order of the time that one save needs between emptying its file and having written it.
constexpr int MOST_CHANGES = 30;
constexpr int MOST_LAG_MICROSECONDS = 120;

const char* EnsureDirectory(const std::string& path) {
    std::filesystem::create_directories(path);
    std::filesystem::permissions(path, std::filesystem::perms::all); // the service is another user
    return path.c_str();
}

} // namespace

Lane::Lane(Settings settings) :
    m_settings(std::move(settings)), m_host(m_settings.build, EnsureDirectory(m_settings.directory)) {
    EnsureDirectory(ItemDirectory());
    for (const Format& format : FORMATS) {
        for (const Strategies& strategies : STRATEGIES) {
            if (format.storage == SystemServer::ConfigStorageType::INI) {
                continue;
            }
            const std::string name = format.name + std::to_string(static_cast<int>(strategies.save));
            TrackedItem& item = m_items.emplace_back(appcfg::Handle("life", name), format, strategies,
                                                     Document(format.storage, PLACES, FILLER_BYTES));
            item.StandIn(ItemDirectory());
            item.WriteFiles(Start::NEITHER, false);
        }
    }
}

void Lane::Begin() {
    StartHost();
    CreateAll();
    MendAll(); // the first files come from the defaults
}

void Lane::End() {
    m_connection.reset();
    const int status = m_host.Stop();
    if (status != 0) {
        throw std::runtime_error("the service ended with status " + std::to_string(status));
    }
}

void Lane::Round(uint32_t number) {
    m_round = number;
    std::seed_seq seeds{m_settings.seed, number};
    m_random.seed(seeds);

    Crash();
    InspectFiles(FIRST);
    if (!ItemsWhere(&TrackedItem::HasCutFile).empty() && Chance(RECOVERY_KILLS)) {
        CrashInRecovery();
    }
    Start(FIRST);
    if (m_settings.twice) {
        m_exposed = ItemsWhere(&TrackedItem::HasCutBackup);
        ChangeUntilKilled(true);
        InspectFiles(SECOND);
        Start(SECOND);
        m_exposed.clear();
    }
    MendAll();
}

void Lane::Crash() {
    if (m_round % LONG_ROUND_EVERY == LONG_ROUND_EVERY - 1 && m_round > LONG_ROUND_EVERY) {
        AwaitSave(ConfigSaveStrategy::TIMING, BEFORE_TIMED_SAVE);
    } else if (Chance(DELAY_ROUNDS)) {
        AwaitSave(ConfigSaveStrategy::DELAY, BEFORE_DELAYED_SAVE);
    } else if (Chance(ENDING_ROUNDS)) {
        EndMidway();
    } else {
        ChangeUntilKilled(false);
    }
}

// The kill finds the service at anything that a client can make it do; or at the first save after the start,
// preferably of an item whose backup is cut.
void Lane::ChangeUntilKilled(bool prefersCut) {
    KillMoment moment;
    if (prefersCut) {
        moment = {Draw(1, 2), microseconds(0), seconds(1)};
    } else if (Chance(80)) {
        moment = {Draw(1, MOST_CHANGES), DrawLag(), seconds(1)};
    } else {
        moment.latest = microseconds(Draw(0, 60000));
    }
    const std::vector<TrackedItem*> cut = ItemsWhere(&TrackedItem::HasCutBackup);
    KillDuring(moment, false, [&] {
        for (;;) {
            ChangeOne(prefersCut && !cut.empty() ? *cut[m_random() % cut.size()]
                                                 : m_items[m_random() % m_items.size()]);
        }
    });
}

void Lane::ChangeOne(TrackedItem& item) {
    const int kind = Draw(1, 100);
    if (kind <= 45) {
        item.SendRaw(*m_connection);
    } else if (kind <= 70) {
        item.SendSet(*m_connection);
    } else if (kind <= 95) {
        EndAndCreate(item);
    } else {
        m_connection->Close();
        Connect();
        CreateAll();
    }
}

// A change that is just announced is saved by the end as well.
void Lane::EndAndCreate(TrackedItem& item) {
    if (Chance(50)) {
        item.SendSet(*m_connection);
    }
    if (Chance(60)) {
        item.Delete(*m_connection);
    }
    item.Create(*m_connection);
    if (!item.HoldsSaved(*m_connection)) {
        throw std::runtime_error("not saved by its end: " + item.Describe());
    }
}

void Lane::SendEither(TrackedItem& item) {
    Chance(50) ? item.SendRaw(*m_connection) : item.SendSet(*m_connection);
}

// The kill finds the saves that a strategy makes on its own.
void Lane::AwaitSave(ConfigSaveStrategy strategy, milliseconds after) {
    KillMoment moment;
    if (Chance(80)) {
        moment = {Draw(1, 10), DrawLag(), after + seconds(2)};
    } else {
        moment.latest = after + milliseconds(Draw(0, 1200));
    }
    KillDuring(moment, false, [&] {
        for (TrackedItem& item : m_items) {
            if (item.Description().saveStrategy == strategy) {
                SendEither(item);
            }
        }
    });
}

// The kill finds the last saves of a service that was told to end.
void Lane::EndMidway() {
    for (TrackedItem& item : m_items) {
        SendEither(item);
    }
    KillDuring({Draw(1, MOST_CHANGES), DrawLag(), milliseconds(300)}, true,
               [&] { ::kill(m_host.Pid(), SIGTERM); });
}

// The kill finds the copying of a backup over a file that is cut.
void Lane::CrashInRecovery() {
    const std::vector<TrackedItem*> cut = ItemsWhere(&TrackedItem::HasCutFile);
    StartHost();
    KillDuring({Draw(1, 2), DrawLag(), milliseconds(100)}, false, [&] { CreateAll(); });
    InspectFiles(RECOVERING);
    for (const TrackedItem* item : cut) {
        m_seen[RECOVERING]["recoveries from the backup"] += item->HasChangedFile() ? 1 : 0;
    }
}

template <class Work>
void Lane::KillDuring(const KillMoment& moment, bool mayEnd, Work work) {
    const FileChanges changes(ItemDirectory());
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
    } else if (status != Support::HostProcess::SIGNALLED + SIGKILL) {
        throw std::runtime_error("the service ended by itself with status " + std::to_string(status));
    }
}

void Lane::InspectFiles(Phase phase) {
    Counts& counts = m_seen[phase];
    bool inSave = false;
    for (TrackedItem& item : m_items) {
        item.NoteCrash();
        const Files files = item.LookAtFiles();
        const bool isWhole = files.file && files.backup;
        counts["files cut"] += files.file ? 0 : 1;
        counts["backups cut"] += files.backup ? 0 : 1;
        counts["both whole, of different age"] += isWhole && files.file != files.backup ? 1 : 0;
        inSave = inSave || !isWhole;
    }
    counts[KILLS] += m_killed ? 1 : 0;
    counts[KILLS_IN_SAVES] += inSave ? 1 : 0;
}

void Lane::Start(Phase phase) {
    StartHost();
    CreateAll();
    CountRecoveries(m_seen[phase]);
    for (TrackedItem& item : m_items) {
        const bool isLost = !item.HoldsSaved(*m_connection);
        m_seen[phase]["losses"] += isLost ? 1 : 0;
        if (isLost) {
            m_seen[phase][UNFORESEEN] += IsExposed(item) ? 0 : 1;
            TellLoss(item);
            item.AcceptLoss();
        }
    }
}

// The crash before this one cut the backup, and this one the file.
bool Lane::IsExposed(const TrackedItem& item) const {
    return item.HasCutFile() && item.HasCutBackup() &&
           std::find(m_exposed.begin(), m_exposed.end(), &item) != m_exposed.end();
}

// With a log of its own.
void Lane::StartHost() {
    std::filesystem::remove(m_host.LogPath());
    m_host.Start();
    Connect();
}

// The framework root is told by the environment, which all lanes share.
void Lane::Connect() {
    static std::mutex environment;
    const std::lock_guard<std::mutex> lock(environment);
    ::setenv("KESTREL_ROOT", m_host.Root().c_str(), 1);
    m_connection = std::make_unique<appcfg::Connection>();
}

void Lane::CreateAll() {
    for (TrackedItem& item : m_items) {
        item.Create(*m_connection);
    }
}

void Lane::CountRecoveries(Counts& counts) {
    std::ifstream file(m_host.LogPath());
    const std::string log{std::istreambuf_iterator<char>(file), {}};
    for (const TrackedItem& item : m_items) {
        const auto count = [&](const std::string& source, const std::string& path) {
            const std::string line = ": restore config file[" + item.Description().path + "] from " + source +
                                     "[" + path + "] done.";
            counts["recoveries from the " + source] += log.find(line) != std::string::npos ? 1 : 0;
        };
        count("backup", item.Description().backupPath);
        count("default", item.Description().defaultPath);
    }
}

void Lane::TellLoss(const TrackedItem& item) {
    const std::string kept = m_settings.directory + "/loss" + std::to_string(m_round) + ".log";
    std::filesystem::copy_file(m_host.LogPath(), kept, std::filesystem::copy_options::overwrite_existing);
    std::printf("round %u: lost: %s; log %s\n", m_round, item.Describe().c_str(), kept.c_str());
}

// A cut backup stays cut until it is next written, and a crash before that would be a second one.
void Lane::MendAll() {
    for (TrackedItem& item : m_items) {
        if (m_settings.twice || item.HasCutBackup()) {
            const std::string trouble = item.SaveWhole(*m_connection);
            if (!trouble.empty()) {
                throw std::runtime_error(trouble);
            }
            item.Create(*m_connection);
        }
    }
}

std::vector<TrackedItem*> Lane::ItemsWhere(bool (TrackedItem::*holds)() const) {
    std::vector<TrackedItem*> items;
    for (TrackedItem& item : m_items) {
        if ((item.*holds)()) {
            items.push_back(&item);
        }
    }
    return items;
}

microseconds Lane::DrawLag() {
    return microseconds(Chance(50) ? 0 : Draw(0, MOST_LAG_MICROSECONDS));
}

} // namespace Endurance
