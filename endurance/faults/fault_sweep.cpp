// For each kind of call a life is lived with the first one failing, then with the second one, until a life
// makes fewer calls than that; then again with every call from there on failing.
#include "fault_sweep.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace Endurance {

namespace {

using FaultTest::Call;
using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

constexpr Strategies INSTANT{ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT};
constexpr Scenario SCENARIOS[] = {
    {"good", Start::GOOD, INSTANT},
    {"good, delay, timing", Start::GOOD, {ConfigSaveStrategy::DELAY, ConfigBackupStrategy::TIMING}},
    {"missing", Start::MISSING, INSTANT},
    {"broken", Start::BROKEN, INSTANT},
    {"neither", Start::NEITHER, INSTANT},
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
    const char text[] = "\nended at ";
    if (::write(STDERR_FILENO, text, sizeof text - 1) < 0 ||
        ::write(STDERR_FILENO, g_point, std::strlen(g_point)) < 0 || ::write(STDERR_FILENO, "\n", 1) < 0) {
        std::_Exit(1);
    }
    ::sigaction(number, &g_former[number], nullptr);
}

// An INI item writes nothing, and a file is cut by a copy over another alone.
bool MakesEveryCall(const Format& format, const Scenario& scenario) {
    return format.storage != ConfigStorageType::INI && &scenario == &SCENARIOS[0];
}

} // namespace

FaultSweep::FaultSweep(bool isBrief) :
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
void FaultSweep::Run(const Format& format) {
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

std::string FaultSweep::Text() const {
    char text[160];
    std::snprintf(text, sizeof text,
                  "points tried %d, requests answered %d, connections closed %d, troubles %d", m_points,
                  m_requests - m_lostConnections, m_lostConnections, m_troubles);
    return text;
}

void FaultSweep::SweepCall(const Format& format, const Scenario& scenario, const CallErrors& entry,
                           bool forEver) {
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

void FaultSweep::SweepAllocations(const Format& format, const Scenario& scenario, Call call, int step) {
    for (const bool forEver : {false, true}) {
        for (int at = 1; Live(format, scenario, {call, at, forEver, 0}); at += step) {
        }
    }
}

bool FaultSweep::Live(const Format& format, const Scenario& scenario, const FaultTest::Fault& fault) {
    std::snprintf(g_point, sizeof g_point, "%s, %s, %s", format.name, scenario.name,
                  Described(fault).c_str());
    FaultyLife life(m_service, format, scenario, fault);
    const bool failed = life.Run();
    m_points += failed ? 1 : 0;
    m_requests += life.Requests();
    m_lostConnections += life.LostConnections();
    for (const std::string& trouble : life.Troubles()) {
        Trouble(trouble);
    }
    if (!m_other.HoldsSaved(m_connection)) {
        Trouble("another client's item is touched: " + m_other.Describe());
    }
    return failed;
}

void FaultSweep::Trouble(const std::string& text) {
    ++m_troubles;
    std::printf("%s: %s\n", g_point, text.c_str());
}

} // namespace Endurance
