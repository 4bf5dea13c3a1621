// power_cut [EVERY]: cuts the power after each file call of items' lives, in each way that a file system may
// take it, and gives what is left to the service; with a number, to each that many-th state only.
//
// A life is lived once, recorded by the injection's watcher. The calls are then played to a model of a disk,
// which knows all that each file may hold if the power goes now; each such state is set up in a directory of
// its own, where an item is created from it and must hold what the ledger of that moment allows.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "recording.h"
#include "service.h"
#include "support/injection.h"
#include "tracked_item.h"

namespace Endurance {

namespace {

using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;

constexpr Strategies STRATEGIES[] = {
    {ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {ConfigSaveStrategy::DELAY, ConfigBackupStrategy::DELAY},
    {ConfigSaveStrategy::TIMING, ConfigBackupStrategy::TIMING},
    {ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::DELAY},
    {ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::TIMING},
    {ConfigSaveStrategy::DELAY, ConfigBackupStrategy::INSTANT},
    {ConfigSaveStrategy::TIMING, ConfigBackupStrategy::DELAY},
};
constexpr const char* START_NAMES[] = {"good", "missing", "broken", "neither"};

// Some blocks in each file.
constexpr int PLACES = 3;
constexpr size_t FILLER_BYTES = 4000;

// Of one point; beyond it they are drawn.
constexpr size_t MOST_STATES = 200;

// In the recovery of so many-th state the power is cut once more.
constexpr int SECOND_CUT_EVERY = 8;

// Of the syncs in a life, one of these fails.
constexpr int FAILING_SYNCS = 4;

std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Disk DiskOf(const TrackedItem& item) {
    const appcfg::ItemDescription& description = item.Description();
    Disk disk;
    for (const std::string& path : {description.defaultPath, description.backupPath, description.path}) {
        if (std::filesystem::exists(path)) {
            disk.Put(std::filesystem::path(path).filename(), ContentOf(path));
        }
    }
    return disk;
}

std::string Shown(const DiskFile::Content& content) {
    return content ? std::to_string(content->size()) + " bytes" : "missing";
}

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

void PowerCut::RunAll() {
    for (const Format& format : FORMATS) {
        if (format.storage == SystemServer::ConfigStorageType::INI) {
            continue;
        }
        for (const Strategies& strategies : STRATEGIES) {
            for (const Start start : {Start::GOOD, Start::MISSING, Start::BROKEN, Start::NEITHER}) {
                Run({format, strategies, start, 0});
            }
        }
        for (int sync = 1; sync <= FAILING_SYNCS; ++sync) {
            Run({format, STRATEGIES[0], Start::GOOD, sync});
        }
    }
}

std::string PowerCut::Text() const {
    char text[160];
    std::snprintf(text, sizeof text,
                  "lives %d, points %d, states %d, of a second cut in recoveries %d, losses %d", m_lives,
                  m_points, m_states, m_secondStates, m_losses);
    return text;
}

void PowerCut::Run(const Plan& plan) {
    ++m_lives;
    m_point = std::string(plan.format.name) + ", save " +
              std::to_string(static_cast<int>(plan.strategies.save)) + ", backup " +
              std::to_string(static_cast<int>(plan.strategies.backup)) + ", start " +
              START_NAMES[static_cast<int>(plan.start)];
    m_point += plan.failingSync == 0 ? "" : ", sync " + std::to_string(plan.failingSync) + " fails";
    const std::string directory = m_service.Root() + "/life" + std::to_string(m_lives);
    std::filesystem::create_directory(directory);
    TrackedItem item(appcfg::Handle("life", "net"), plan.format, plan.strategies,
                     {plan.format.storage, PLACES, FILLER_BYTES});
    item.StandIn(directory);
    item.WriteFiles(plan.start, plan.start == Start::GOOD);
    const Disk disk = DiskOf(item);
    std::vector<Event> events;
    {
        const Recording recording(directory);
        item.m_tell = Recording::Mark;
        if (plan.failingSync == 0) {
            Live(item, plan.start == Start::GOOD);
        } else {
            LiveWithFailingSync(item, plan.failingSync);
        }
        events = Recording::Take();
    }
    CutAfterEach(disk, events, true);
    std::filesystem::remove_all(directory);
}

void PowerCut::Live(TrackedItem& item, bool isGood) {
    item.Create(*m_connection);
    item.SendRaw(*m_connection);
    item.SendSet(*m_connection);
    AwaitSave(item);
    item.SendRaw(*m_connection);
    if (isGood) {
        item.Restore(*m_connection);
        item.SendRaw(*m_connection);
        item.ChangeKey(*m_connection, item.NextKey());
        item.SendSet(*m_connection);
    }
    item.Delete(*m_connection);
    item.Create(*m_connection);
    item.SendSet(*m_connection);
    CloseConnection(item);
}

// A copy whose sync failed may be torn on the disk, and the next save must write it before the other one.
void PowerCut::LiveWithFailingSync(TrackedItem& item, int sync) {
    item.m_failures = FaultTest::Failures;
    const FaultTest::Injection injection({FaultTest::Call::FSYNC, sync, false, EIO});
    item.Create(*m_connection);
    item.SendRaw(*m_connection);
    item.SendRaw(*m_connection);
    item.SendRaw(*m_connection);
    item.Delete(*m_connection);
}

// The strategies save what was set.
void PowerCut::AwaitSave(TrackedItem& item) {
    const int64_t number = item.GetLedger().Accepted();
    if (!Support::Eventually([&] {
            const Files files = item.LookAtFiles();
            return files.file == number && files.backup == number;
        })) {
        throw std::runtime_error("not saved in time: " + item.Describe());
    }
}

// The item ends with its connection.
void PowerCut::CloseConnection(TrackedItem& item) {
    m_connection = std::make_unique<appcfg::Connection>();
    if (!Service::ComesToHold({})) {
        throw std::runtime_error("an item outlives its connection");
    }
    item.NoteEnd(0);
}

void PowerCut::CutAfterEach(Disk disk, const std::vector<Event>& events, bool isFirst) {
    std::shared_ptr<const TrackedItem> known;
    std::map<std::string, int64_t> finished; // the number that a closed file held last, whole
    int64_t standing = DEFAULT_NUMBER;
    for (const Event& event : events) {
        disk.Apply(event);
        if (event.known) {
            known = event.known;
            continue;
        }
        if (event.kind == FileCall::CLOSE && !event.name.empty()) {
            for (const Key& key : known->Keys()) {
                const auto number = known->GetDocument().NumberInBytes(*disk.Files().at(event.name).now, key);
                finished[event.name] = number.value_or(finished[event.name]);
            }
        }
        const std::string name = known->Description().handle.Name();
        standing = std::max(standing, std::min(finished[name], finished[name + ".backup"]));
        TrackedItem item = *known;
        item.NoteStanding(standing);
        ++m_points;
        TryStates(disk, item, isFirst);
    }
}

// Each combination of what may be left of each file, or as many as are enough.
void PowerCut::TryStates(const Disk& disk, const TrackedItem& known, bool isFirst) {
    size_t count = 1;
    for (const auto& [name, file] : disk.Files()) {
        count *= file.left.size();
    }
    for (size_t index = 0; index < std::min(count, MOST_STATES); ++index) {
        size_t rest = count <= MOST_STATES ? index : m_random() % count;
        State state;
        for (const auto& [name, file] : disk.Files()) {
            state.emplace_back(
                name, *std::next(file.left.begin(), static_cast<std::ptrdiff_t>(rest % file.left.size())));
            rest /= file.left.size();
        }
        if (m_seen++ % m_every == 0) {
            Try(state, known, isFirst);
        }
    }
}

void PowerCut::Try(const State& state, TrackedItem item, bool isFirst) {
    const std::string directory = m_service.Root() + "/cut" + std::to_string(++m_directories);
    std::filesystem::create_directory(directory);
    Disk disk;
    for (const auto& [name, content] : state) {
        if (content) {
            std::ofstream(directory + "/" + name, std::ios::binary) << *content;
            disk.Put(name, *content);
        }
    }
    item.StandIn(directory);
    std::string trouble;
    std::vector<Event> events;
    {
        const Recording recording(directory);
        Recording::Mark(item);
        trouble = item.Recover(*m_connection);
        events = Recording::Take();
    }
    if (trouble.empty() && (trouble = item.SaveWhole(*m_connection)).empty() && isFirst &&
        m_states % SECOND_CUT_EVERY == 0) {
        CutAfterEach(disk, events, false);
    }
    std::filesystem::remove_all(directory);
    ++(isFirst ? m_states : m_secondStates);
    if (!trouble.empty()) {
        ++m_losses;
        std::printf("lost: %s, point %d%s: %s;", m_point.c_str(), m_points, isFirst ? "" : ", second cut",
                    trouble.c_str());
        for (const auto& [name, content] : state) {
            std::printf(" %s: %s", name.c_str(), Shown(content).c_str());
        }
        std::printf("\n");
    }
}

} // namespace

} // namespace Endurance

int main(int argc, char** argv) {
    try {
        const int every = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 1;
        Endurance::PowerCut cut(every);
        cut.RunAll();
        std::printf("%s\n", cut.Text().c_str());
        return cut.HasPassed() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "power_cut: %s\n", fault.what());
        return EXIT_FAILURE;
    }
}
