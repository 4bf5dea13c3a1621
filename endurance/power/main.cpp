// power_cut [EVERY]: cuts the power after each file call of items' lives, in each way that a file system may
// take it, and gives what is left to the service; with a number, to each that many-th state only.
//
// A life is lived once, recorded by the injection's watcher. The calls are then played to a model of a disk,
// which knows all that each file may hold if the power goes now; each such state is set up in a directory of
// its own, where an item is created from it and must hold what the ledger of that moment allows.
#include <cerrno>
#include <fstream>
#include <iterator>

#include "program.h"
#include "recording.h"
#include "service.h"

namespace Endurance {

namespace {

constexpr ConfigStrategy STRATEGIES[] = {ConfigStrategy::INSTANT, ConfigStrategy::DELAY,
                                         ConfigStrategy::TIMING};

// Some blocks in each file.
constexpr int PLACES = 3;
constexpr size_t FILLER_BYTES = 4000;

// Of one point; beyond it they are drawn.
constexpr size_t MOST_STATES = 200;

// Longer than a hurried strategy waits: one may come between each two files of a key change.
constexpr int SLOW_SYNC_MILLISECONDS = 15;

// In the recovery of so many-th state the power is cut once more.
constexpr int SECOND_CUT_EVERY = 8;

// Of the syncs in a life, one of these fails.
constexpr int FAILING_SYNCS = 4;

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

// Lets items live once each and looks at every state that a cut of the power may leave of them. Owned and
// used by main's thread.
class PowerCut {
public:
    // Sets up each that many-th state only.
    explicit PowerCut(int every) : m_every(every) {}

    // Tells what was seen; the exit status.
    int RunAll() {
        for (const Format& format : FORMATS) {
            if (format.storage == ConfigStorageType::INI) {
                continue;
            }
            for (const ConfigStrategy save : STRATEGIES) {
                for (const ConfigStrategy backup : STRATEGIES) {
                    for (const Start start : {Start::GOOD, Start::MISSING, Start::BROKEN, Start::NEITHER}) {
                        Run(format, {save, backup}, start, 0);
                    }
                }
            }
            for (int sync = 1; sync <= FAILING_SYNCS; ++sync) {
                Run(format, {ConfigStrategy::INSTANT, ConfigStrategy::INSTANT}, Start::GOOD, sync);
            }
        }
        std::printf("lives %d, points %d, states %d, of a second cut in recoveries %d, losses %d\n", m_lives,
                    m_points, m_states, m_secondStates, m_losses);
        return m_losses == 0 && m_states > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    using State = std::vector<std::pair<std::string, DiskFile::Content>>; // by name

    // Of the syncs in it that many-th one fails; none when it is 0.
    void Run(const Format& format, const Strategies& strategies, Start start, int failingSync) {
        ++m_lives;
        char point[100];
        std::snprintf(point, sizeof point, "%s, save %d, backup %d, start %d, failing sync %d", format.name,
                      static_cast<int>(strategies.save), static_cast<int>(strategies.backup),
                      static_cast<int>(start), failingSync);
        m_point = point;
        const std::string directory = m_service.Root() + "/life" + std::to_string(m_lives);
        std::filesystem::create_directory(directory);
        TrackedItem item(appcfg::Handle("life", "net"), format, strategies,
                         {format.storage, PLACES, FILLER_BYTES});
        item.StandIn(directory);
        item.WriteFiles(start, start == Start::GOOD);
        const Disk disk = DiskOf(item);
        std::vector<Event> events;
        {
            const Recording recording(directory);
            item.m_tell = Recording::Mark;
            if (failingSync == 0) {
                Live(item, start == Start::GOOD);
            } else {
                LiveWithFailingSync(item, failingSync);
            }
            events = Recording::Take();
        }
        CutAfterEach(disk, events, true);
        std::filesystem::remove_all(directory);
    }

    void Live(TrackedItem& item, bool isGood) {
        item.Create(*m_connection);
        item.SendRaw(*m_connection);
        item.SendSet(*m_connection);
        const int64_t number = item.GetLedger().Accepted();
        const bool isSaved = Support::Eventually([&] {
            const Files files = item.Look(); // no more than written: a sync may be on its way
            return files.file == number && files.backup == number;
        });
        Require(isSaved, "not saved in time: " + item.Describe());
        item.SendRaw(*m_connection);
        if (isGood) {
            item.Restore(*m_connection);
            item.SendRaw(*m_connection);
            Recording::s_syncMilliseconds = SLOW_SYNC_MILLISECONDS;
            item.ChangeKey(*m_connection, item.NextKey());
            Recording::s_syncMilliseconds = 0;
            item.SendSet(*m_connection);
        }
        item.Delete(*m_connection);
        item.Create(*m_connection);
        item.SendSet(*m_connection);
        m_connection = std::make_unique<appcfg::Connection>();
        Require(Support::RunningService::Knows({}), "an item outlives its connection");
        item.NoteEnd(0);
    }

    // A copy whose sync failed may be torn on the disk, and the next save must write it before the other one.
    void LiveWithFailingSync(TrackedItem& item, int sync) {
        item.m_failures = FaultTest::Failures;
        const FaultTest::Injection injection({FaultTest::Call::FSYNC, sync, false, EIO});
        item.Create(*m_connection);
        item.SendRaw(*m_connection);
        item.SendRaw(*m_connection);
        item.SendRaw(*m_connection);
        item.Delete(*m_connection);
    }

    // All states after each event; a cut of the first kind is followed by another one in the recovery.
    void CutAfterEach(Disk disk, const std::vector<Event>& events, bool isFirst) {
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
                    const auto number =
                        known->GetDocument().NumberInBytes(*disk.Files().at(event.name).now, key);
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
    void TryStates(const Disk& disk, const TrackedItem& known, bool isFirst) {
        size_t count = 1;
        for (const auto& [name, file] : disk.Files()) {
            count *= file.left.size();
        }
        for (size_t index = 0; index < std::min(count, MOST_STATES); ++index) {
            size_t rest = count <= MOST_STATES ? index : m_dice.Pick(count);
            State state;
            for (const auto& [name, file] : disk.Files()) {
                state.emplace_back(name, *std::next(file.left.begin(),
                                                    static_cast<std::ptrdiff_t>(rest % file.left.size())));
                rest /= file.left.size();
            }
            if (m_seen++ % m_every == 0) {
                Try(state, known, isFirst);
            }
        }
    }

    void Try(const State& state, TrackedItem item, bool isFirst) {
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
                std::printf(" %s: %s", name.c_str(),
                            content ? (std::to_string(content->size()) + " bytes").c_str() : "missing");
            }
            std::printf("\n");
        }
    }

    const int m_every;
    Service m_service{};
    std::unique_ptr<appcfg::Connection> m_connection = std::make_unique<appcfg::Connection>();
    Dice m_dice{1};
    std::string m_point{}; // which life
    int m_directories = 0;
    int m_seen = 0; // states, also those that are not set up
    int m_lives = 0;
    int m_points = 0;
    int m_states = 0;
    int m_secondStates = 0;
    int m_losses = 0;
};

int CutPower(int argc, char** argv) {
    return PowerCut(argc > 1 ? std::stoi(argv[1]) : 1).RunAll();
}

} // namespace

} // namespace Endurance

int main(int argc, char** argv) {
    return Endurance::RunProgram(argc, argv, Endurance::CutPower);
}
