#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "life.h"
#include "pl/pl_log_control.h"

namespace FaultTest {

namespace {

using ServiceTest::Client;

constexpr Format FORMATS[] = {
    {"Json", ConfigStorageType::JSON, "", "", R"({"mode": ")", R"("})", "mode", "mode", "", "",
     R"({"mode": ")", R"("})", R"("mode": ")", "\"", "}"},
    {"Xml", ConfigStorageType::XML, "", "new", "<cfg><net><mode>", "</mode></net></cfg>", "net.mode", "net",
     "<mode>", "</mode>", "<net><mode>", "</mode></net>", "<mode>", "</mode>", "</cfg>"},
    {"EncryptedXml", ConfigStorageType::XML, "old", "new", "<cfg><net><mode>", "</mode></net></cfg>",
     "net.mode", "net", "<mode>", "</mode>", "<net><mode>", "</mode></net>", "<mode>", "</mode>", "</cfg>"},
    {"Ini", ConfigStorageType::INI, "", "", "mode=", "\n", "mode", "section", "mode=", "", "mode=", "",
     "mode=", "\n", "\n"},
};

constexpr Scenario SCENARIOS[] = {
    {"Good", Start::GOOD, ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {"GoodDelayTiming", Start::GOOD, ConfigSaveStrategy::DELAY, ConfigBackupStrategy::TIMING},
    {"Missing", Start::MISSING, ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {"Broken", Start::BROKEN, ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {"Neither", Start::NEITHER, ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
};

struct CallErrors {
    Call call;
    std::vector<int> errors;
};

const CallErrors FILE_CALLS[] = {
    {Call::OPEN, {ENOSPC, EIO, EACCES, EMFILE, EINTR}},
    {Call::WRITE, {ENOSPC, SHORT_WRITE, EIO, EINTR}},
    {Call::FSYNC, {EIO, ENOSPC, EINTR}},
    {Call::CLOSE, {EIO, ENOSPC, EINTR}},
    {Call::READ, {EIO, EINTR}},
    {Call::FSTAT, {EIO, ENOMEM}},
    {Call::STAT, {EIO, EACCES, ENOMEM}},
};

struct Tally {
    int points;
    int requests;
    int lostConnections;
    int losses;
    int troubles;
} g_tally;

char g_point[256] = "no point";

// Names the point at which the process ends; what ends it goes on afterwards.
struct sigaction g_former[NSIG];
void NamePoint(int number) {
    const char text[] = "\nended at ";
    if (::write(STDERR_FILENO, text, sizeof text - 1) < 0 ||
        ::write(STDERR_FILENO, g_point, std::strlen(g_point)) < 0 || ::write(STDERR_FILENO, "\n", 1) < 0) {
        std::_Exit(1);
    }
    ::sigaction(number, &g_former[number], nullptr);
}

class Report : public ::testing::Environment {
public:
    void SetUp() override {
        for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE}) {
            struct sigaction action {};
            action.sa_handler = NamePoint;
            ::sigaction(number, &action, &g_former[number]);
        }
    }
    void TearDown() override {
        std::printf("points tried %d, requests answered %d, connections closed %d, losses %d, troubles %d\n",
                    g_tally.points, g_tally.requests - g_tally.lostConnections, g_tally.lostConnections,
                    g_tally.losses, g_tally.troubles);
    }
};
const auto* const g_report = ::testing::AddGlobalTestEnvironment(new Report);

int FromEnvironment(const char* name, int otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<int>(std::strtol(text, nullptr, 10));
}

std::atomic<size_t> g_logLines{0};

void CountLine(void*, int, int level, const char*, int, const char*) {
    g_logLines += level >= 3 ? 1 : 0;
}

} // namespace

// One service for many lives, with an item of another client that no fault may touch.
class ALife : public ServiceTest::AService,
              public ::testing::WithParamInterface<std::tuple<Format, Scenario>>,
              private Place {
protected:
    ALife() {
        pl_log_set_level(3);
        pl_log_set_sink(CountLine, nullptr);
        m_other.m_handle = ServiceTest::Handle("other", "net");
        AppCfgCreateReq item = Item("other.cfg", "", "");
        item.hndl = m_other.m_handle;
        Writes("other.cfg", R"({"mode": "theirs"})");
        EXPECT_EQ(m_other.Creates(item), 200);
    }

    // False when the life made no such call.
    bool Lives(const Fault& fault) {
        const auto& [format, scenario] = GetParam();
        std::snprintf(g_point, sizeof g_point, "%s, %s, %s", format.name, scenario.name,
                      Described(fault).c_str());
        Life life(*this, format, scenario);
        const bool failed = life.LivesWith(fault);
        EXPECT_EQ(m_other.Value("mode"), "theirs") << g_point;
        for (const std::string& trouble : life.Troubles()) {
            ADD_FAILURE() << g_point << ": " << trouble;
        }
        g_tally.points += failed ? 1 : 0;
        g_tally.requests += life.Requests();
        g_tally.lostConnections += life.LostConnections();
        g_tally.losses += life.Losses();
        g_tally.troubles += static_cast<int>(life.Troubles().size());
        return failed;
    }

    // Every such call of the life fails once, and from there for ever. The errors take turns, or are all
    // tried.
    void Sweeps(const CallErrors& entry, bool forEver, bool all) {
        std::vector<int> errors = entry.errors;
        if (forEver) {
            errors.erase(std::remove(errors.begin(), errors.end(), EINTR), errors.end());
        }
        bool reached = true;
        for (size_t at = 1; reached; ++at) {
            reached = false;
            for (size_t i = 0; i < (all ? errors.size() : 1); ++i) {
                const int error = errors[(at + i) % errors.size()];
                reached |= Lives({entry.call, static_cast<int>(at), forEver, error});
            }
            // A call that the service no longer makes by this name would pass untried.
            EXPECT_TRUE(reached || at > 1 || !MakesEveryCall()) << g_point;
        }
    }

private:
    // An INI item writes nothing, and a file is cut by a copy over another alone.
    static bool MakesEveryCall() {
        const auto& [format, scenario] = GetParam();
        return format.type != ConfigStorageType::INI && std::string(scenario.name) == "Good";
    }
    std::string PathOf(const std::string& name) const override { return Path(name); }
    AppCfgCreateReq NewItem() const override { return Item(); }
    bool WaitsForNoItem() const override { return Knows({"other.net.0"}); }
    size_t LogLines() const override { return g_logLines; }

    const Exempt m_exempt;
    Client m_other;
};

TEST_P(ALife, SurvivesEveryFailingFileCall) {
    const bool all = FromEnvironment("ACM_FAULTS_ALL", 0) != 0;
    for (const CallErrors& entry : FILE_CALLS) {
        Sweeps(entry, false, all);
        Sweeps(entry, true, all);
    }
}

TEST_P(ALife, SurvivesFailingAllocations) {
    const int step = FromEnvironment("ACM_FAULTS_STEP", 37);
    for (const bool forEver : {false, true}) {
        for (int at = 1; Lives({Call::ALLOCATION, at, forEver, 0}); at += step) {
        }
    }
}

TEST_P(ALife, SurvivesAShortageInTheCipherLibrary) {
    for (const bool forEver : {false, true}) {
        for (int at = 1; Lives({Call::CIPHER_ALLOCATION, at, forEver, 0}); ++at) {
        }
    }
}

// Any text is a good INI file: none is broken.
std::vector<std::tuple<Format, Scenario>> Lives() {
    std::vector<std::tuple<Format, Scenario>> lives;
    for (const Format& format : FORMATS) {
        for (const Scenario& scenario : SCENARIOS) {
            if (format.type != ConfigStorageType::INI || scenario.start != Start::BROKEN) {
                lives.emplace_back(format, scenario);
            }
        }
    }
    return lives;
}

INSTANTIATE_TEST_SUITE_P(Of, ALife, ::testing::ValuesIn(Lives()), [](const auto& entry) {
    return std::string(std::get<0>(entry.param).name) + std::get<1>(entry.param).name;
});

} // namespace FaultTest
