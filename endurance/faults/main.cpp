// fault_sweep [--brief] [FORMAT]: every file call and allocation of items' lives fails in turn, of one format
// or of all; briefly, each 37th allocation and each call with one of its errors.
//
// For each kind of call a life is lived with the first one failing, then with the second one, until a life
// makes fewer calls than that; then again with every call from there on failing.
#include <cstdio>

#include <algorithm>

#include "faulty_life.h"
#include "program.h"

namespace Endurance {

namespace {

using FaultTest::Call;

constexpr Strategies INSTANT{ConfigStrategy::INSTANT, ConfigStrategy::INSTANT};
constexpr Scenario SCENARIOS[] = {
    {"good", Start::GOOD, INSTANT},
    {"good, delay, timing", Start::GOOD, {ConfigStrategy::DELAY, ConfigStrategy::TIMING}},
    {"missing", Start::MISSING, INSTANT},
    {"broken", Start::BROKEN, INSTANT},
    {"neither", Start::NEITHER, INSTANT},
};

// A file call, and how it can fail.
struct CallErrors {
    FaultTest::Call call;
    std::vector<int> errors;
};

const CallErrors FILE_CALLS[] = {
    {Call::OPEN, {ENOSPC, EIO, EACCES, EMFILE, EINTR}},
    {Call::WRITE, {ENOSPC, FaultTest::SHORT_WRITE, EIO, EINTR}},
    {Call::FSYNC, {EIO, ENOSPC, EINTR}},
    {Call::CLOSE, {EIO, ENOSPC, EINTR}},
    {Call::READ, {EIO, EINTR}},
    {Call::FSTAT, {EIO, ENOMEM}},
    {Call::STAT, {EIO, EACCES, ENOMEM}},
};

constexpr int BRIEF_STEP = 37;

char g_point[256] = "no point";

// Names the point at which the process ends; what ends it goes on afterwards.
struct sigaction g_former[NSIG];
void NamePoint(int number) {
    ::dprintf(STDERR_FILENO, "\nended at %s\n", g_point);
    ::sigaction(number, &g_former[number], nullptr);
}

// An INI item writes nothing, and a file is cut by a copy over another alone.
bool MakesEveryCall(const Format& format, const Scenario& scenario) {
    return format.storage != ConfigStorageType::INI && &scenario == &SCENARIOS[0];
}

// Owns the service and another client's item in it, which no fault may touch. Used by main's thread.
class FaultSweep {
public:
    // Briefly, the errors of a call take turns and most allocations are passed over.
    explicit FaultSweep(bool isBrief) :
        m_isBrief(isBrief),
        m_other(appcfg::Handle("other", "net"), FORMATS[0], INSTANT, Document(FORMATS[0].storage, 1, 0)) {
        for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE}) {
            struct sigaction action {};
            action.sa_handler = NamePoint;
            ::sigaction(number, &action, &g_former[number]);
        }
        std::filesystem::create_directory(m_service.Root() + "/other");
        m_other.StandIn(m_service.Root() + "/other");
        m_other.WriteFiles(Start::GOOD, false);
        m_other.Create(m_connection);
    }

    // Any text is a good INI file: none is broken.
    void Run(const Format& format) {
        for (const Scenario& scenario : SCENARIOS) {
            if (format.storage == ConfigStorageType::INI && scenario.start == Start::BROKEN) {
                continue;
            }
            for (const CallErrors& entry : FILE_CALLS) {
                SweepCall(format, scenario, entry, false);
                SweepCall(format, scenario, entry, true);
            }
            SweepAllocations(format, scenario, Call::ALLOCATION, m_isBrief ? BRIEF_STEP : 1);
            SweepAllocations(format, scenario, Call::CIPHER_ALLOCATION, 1);
        }
    }

    // Tells what was seen; the exit status.
    int Sum() const {
        std::printf("points tried %d, troubles %d\n", m_points, m_troubles);
        return m_troubles == 0 && m_points > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    void SweepCall(const Format& format, const Scenario& scenario, const CallErrors& entry, bool forEver) {
        std::vector<int> errors = entry.errors;
        if (forEver) { // a call that is interrupted for ever would be tried for ever
            errors.erase(std::remove(errors.begin(), errors.end(), EINTR), errors.end());
        }
        bool reached = true;
        for (size_t at = 1; reached; ++at) {
            reached = false;
            for (size_t i = 0; i < (m_isBrief ? 1 : errors.size()); ++i) {
                const int error = errors[(at + i) % errors.size()];
                reached |= Live(format, scenario, {entry.call, static_cast<int>(at), forEver, error});
            }
            if (!reached && at == 1 && MakesEveryCall(format, scenario)) {
                Trouble("the service no longer makes this call by this name");
            }
        }
    }

    void SweepAllocations(const Format& format, const Scenario& scenario, Call call, int step) {
        for (const bool forEver : {false, true}) {
            for (int at = 1; Live(format, scenario, {call, at, forEver, 0}); at += step) {
            }
        }
    }

    // False when the life made no such call.
    bool Live(const Format& format, const Scenario& scenario, const FaultTest::Fault& fault) {
        std::snprintf(g_point, sizeof g_point, "%s, %s, %s", format.name, scenario.name,
                      Described(fault).c_str());
        FaultyLife life(m_service, format, scenario, fault);
        const bool failed = life.Run();
        m_points += failed ? 1 : 0;
        for (const std::string& trouble : life.Troubles()) {
            Trouble(trouble);
        }
        if (!m_other.HoldsSaved(m_connection)) {
            Trouble("another client's item is touched: " + m_other.Describe());
        }
        return failed;
    }

    void Trouble(const std::string& text) {
        ++m_troubles;
        std::printf("%s: %s\n", g_point, text.c_str());
    }

    const FaultTest::Exempt m_exempt{};
    const bool m_isBrief;
    const Service m_service{};
    appcfg::Connection m_connection{};
    TrackedItem m_other;
    int m_points = 0;
    int m_troubles = 0;
};

int Sweep(int argc, char** argv) {
    const bool isBrief = argc > 1 && std::string(argv[1]) == "--brief";
    const std::string wanted = argc > (isBrief ? 2 : 1) ? argv[argc - 1] : "";
    FaultSweep sweep(isBrief);
    for (const Format& format : FORMATS) {
        if (wanted.empty() || wanted == format.name) {
            sweep.Run(format);
        }
    }
    return sweep.Sum();
}

} // namespace

} // namespace Endurance

int main(int argc, char** argv) {
    return Endurance::RunProgram(argc, argv, Endurance::Sweep);
}
