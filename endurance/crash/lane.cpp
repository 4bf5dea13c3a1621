#include "lane.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Endurance {

namespace {

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

constexpr const char* STRATEGY_NAMES[] = {"_instant", "_delay", "_timing"};

constexpr milliseconds BEFORE_DELAYED_SAVE{2950};
constexpr milliseconds BEFORE_TIMED_SAVE{59500};

// Bounds of a drawn moment: changes of files until the kill, and the lag behind the last of them, of the
// order of the time that one save needs between emptying its file and having written it.
constexpr int MOST_CHANGES = 30;
constexpr int MOST_LAG_MICROSECONDS = 120;

int Draw(std::mt19937& random, int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
}

bool Chance(std::mt19937& random, int percent) {
    return Draw(random, 1, 100) <= percent;
}

microseconds DrawLag(std::mt19937& random) {
    return microseconds(Chance(random, 50) ? 0 : Draw(random, 0, MOST_LAG_MICROSECONDS));
}

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
        for (const Strategy strategy : {INSTANT, DELAY, TIMING}) {
            if (format.storage == SystemServer::ConfigStorageType::INI) {
                continue;
            }
            const Strategies strategies{static_cast<SystemServer::ConfigSaveStrategy>(strategy + 1),
                                        static_cast<SystemServer::ConfigBackupStrategy>(strategy + 1)};
            TrackedItem& item = m_items.emplace_back(
                appcfg::Handle("life", std::string(format.name) + STRATEGY_NAMES[strategy]), format,
                strategies, Document(format.storage, PLACES, FILLER_BYTES));
            item.StandIn(ItemDirectory());
            item.WriteFiles(Start::NEITHER, false);
        }
    }
}

Strategy Lane::StrategyOf(const TrackedItem& item) {
    return static_cast<Strategy>(static_cast<int>(item.Description().saveStrategy) - 1);
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
    Random random(seeds);

    Crash(random);
    InspectFiles(m_first);
    if (!ItemsWhere(&TrackedItem::HasCutFile).empty() && Chance(random, RECOVERY_KILLS)) {
        CrashInRecovery(random);
    }
    Start(m_first);
    if (m_settings.twice) {
        m_exposed = ItemsWhere(&TrackedItem::HasCutBackup);
        m_preferCut = true;
        ChangeUntilKilled(random);
        m_preferCut = false;
        InspectFiles(m_second);
        Start(m_second);
        m_exposed.clear();
    }
    MendAll();
}

void Lane::Crash(Random& random) {
    if (m_round % LONG_ROUND_EVERY == LONG_ROUND_EVERY - 1 && m_round > LONG_ROUND_EVERY) {
        AwaitSave(random, TIMING, BEFORE_TIMED_SAVE);
    } else if (Chance(random, DELAY_ROUNDS)) {
        AwaitSave(random, DELAY, BEFORE_DELAYED_SAVE);
    } else if (Chance(random, ENDING_ROUNDS)) {
        EndMidway(random);
    } else {
        ChangeUntilKilled(random);
    }
}

// The kill finds the service at anything that a client can make it do.
void Lane::ChangeUntilKilled(Random& random) {
    KillMoment moment;
    if (m_preferCut) {
        moment = {Draw(random, 1, 2), microseconds(0), seconds(1)}; // the first save after the start
    } else if (Chance(random, 80)) {
        moment = {Draw(random, 1, MOST_CHANGES), DrawLag(random), seconds(1)};
    } else {
        moment.latest = microseconds(Draw(random, 0, 60000));
    }
    Killer killer(m_host, ItemDirectory(), moment);
    try {
        for (;;) {
            ChangeOne(random, PickItem(random));
        }
    } catch (const appcfg::ConnectionError&) {
        killer.Join();
    }
    Reap(false);
}

void Lane::ChangeOne(Random& random, TrackedItem& item) {
    const int kind = Draw(random, 1, 100);
    if (kind <= 45) {
        item.SendRaw(*m_connection);
    } else if (kind <= 70) {
        item.SendSet(*m_connection);
    } else if (kind <= 95) {
        EndAndCreate(random, item);
    } else {
        m_connection->Close();
        Connect();
        CreateAll();
    }
}

// A change that is just announced is saved by the end as well.
void Lane::EndAndCreate(Random& random, TrackedItem& item) {
    if (Chance(random, 50)) {
        item.SendSet(*m_connection);
    }
    if (Chance(random, 60)) {
        item.Delete(*m_connection);
    }
    item.Create(*m_connection);
    if (!item.HoldsSaved(*m_connection)) {
        throw std::runtime_error("not saved by its end: " + item.Describe());
    }
}

void Lane::SendEither(Random& random, TrackedItem& item) {
    if (Chance(random, 50)) {
        item.SendRaw(*m_connection);
    } else {
        item.SendSet(*m_connection);
    }
}

// The kill finds the saves that a strategy makes on its own.
void Lane::AwaitSave(Random& random, Strategy strategy, milliseconds after) {
    KillMoment moment;
    if (Chance(random, 80)) {
        moment = {Draw(random, 1, 10), DrawLag(random), after + seconds(2)};
    } else {
        moment.latest = after + milliseconds(Draw(random, 0, 1200));
    }
    Killer killer(m_host, ItemDirectory(), moment);
    try {
        for (TrackedItem& item : m_items) {
            if (StrategyOf(item) == strategy) {
                SendEither(random, item);
            }
        }
    } catch (const appcfg::ConnectionError&) {
        // Killed by a save that had already been due.
    }
    killer.Join();
    Reap(false);
}

// The kill finds the last saves of a service that was told to end.
void Lane::EndMidway(Random& random) {
    for (TrackedItem& item : m_items) {
        SendEither(random, item);
    }
    Killer killer(m_host, ItemDirectory(),
                  {Draw(random, 1, MOST_CHANGES), DrawLag(random), milliseconds(300)});
    ::kill(m_host.Pid(), SIGTERM);
    killer.Join();
    Reap(true);
}

// The kill finds the copying of a backup over a file that is cut.
void Lane::CrashInRecovery(Random& random) {
    const std::vector<const TrackedItem*> cut = ItemsWhere(&TrackedItem::HasCutFile);
    StartHost();
    Killer killer(m_host, ItemDirectory(), {Draw(random, 1, 2), DrawLag(random), milliseconds(100)});
    try {
        CreateAll();
    } catch (const appcfg::ConnectionError&) {
        // Killed before the last one.
    }
    killer.Join();
    Reap(false);
    InspectFiles(m_recovering);
    for (const TrackedItem* item : cut) {
        m_recovering.fromBackup.of[StrategyOf(*item)] += item->HasChangedFile() ? 1 : 0;
    }
}

void Lane::Reap(bool mayEnd) {
    m_connection.reset();
    const int status = m_host.Wait();
    m_killed = status != 0;
    if (status == 0 && mayEnd) {
        for (TrackedItem& item : m_items) {
            item.NoteEnd(0);
        }
    } else if (status != HostProcess::SIGNALLED + SIGKILL) {
        throw std::runtime_error("the service ended by itself with status " + std::to_string(status));
    }
}

void Lane::InspectFiles(Counts& counts) {
    bool inSave = false;
    for (TrackedItem& item : m_items) {
        item.NoteCrash();
        const Files files = item.LookAtFiles();
        const Strategy strategy = StrategyOf(item);
        counts.cutFiles.of[strategy] += files.file ? 0 : 1;
        counts.cutBackups.of[strategy] += files.backup ? 0 : 1;
        counts.behind.of[strategy] += files.file && files.backup && *files.file != *files.backup ? 1 : 0;
        inSave = inSave || !files.file || !files.backup;
    }
    counts.kills += m_killed ? 1 : 0;
    counts.killsInSaves += inSave ? 1 : 0;
}

void Lane::Start(Counts& counts) {
    StartHost();
    CreateAll();
    CountRecoveries(counts);
    for (TrackedItem& item : m_items) {
        if (!item.HoldsSaved(*m_connection)) {
            ++counts.losses.of[StrategyOf(item)];
            counts.unforeseen += IsExposed(item) ? 0 : 1;
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

void Lane::CountRecoveries(Counts& counts) const {
    std::ifstream file(m_host.LogPath());
    const std::string log{std::istreambuf_iterator<char>(file), {}};
    for (const TrackedItem& item : m_items) {
        const appcfg::ItemDescription& description = item.Description();
        const auto from = [&](const std::string& source) {
            return log.find(": restore config file[" + description.path + "] from " + source + "] done.") !=
                   std::string::npos;
        };
        counts.fromBackup.of[StrategyOf(item)] += from("backup[" + description.backupPath) ? 1 : 0;
        counts.fromDefault.of[StrategyOf(item)] += from("default[" + description.defaultPath) ? 1 : 0;
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
            Mend(item);
        }
    }
}

void Lane::Mend(TrackedItem& item) {
    const std::string trouble = item.SaveWhole(*m_connection);
    if (!trouble.empty()) {
        throw std::runtime_error(trouble);
    }
    item.Create(*m_connection);
}

std::vector<const TrackedItem*> Lane::ItemsWhere(bool (TrackedItem::*holds)() const) const {
    std::vector<const TrackedItem*> items;
    for (const TrackedItem& item : m_items) {
        if ((item.*holds)()) {
            items.push_back(&item);
        }
    }
    return items;
}

TrackedItem& Lane::PickItem(Random& random) {
    std::vector<TrackedItem*> choice;
    for (TrackedItem& item : m_items) {
        if (m_preferCut && item.HasCutBackup()) {
            choice.push_back(&item);
        }
    }
    if (choice.empty()) {
        return m_items[random() % m_items.size()];
    }
    return *choice[random() % choice.size()];
}

} // namespace Endurance
