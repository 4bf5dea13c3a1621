#include <time.h>

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdlib>
#include <mutex>

#include "exports.h"
#include "log_budget.h"
#include "log_output.h"

using Kestrel::LogBudget;
using Kestrel::LogOutput;
using Kestrel::LogText;

namespace {

constexpr int DEFAULT_LEVEL = 1;

int LevelFromEnvironment() {
    const char* set = std::getenv("PL_LOG_LEVEL");
    char* end = nullptr;
    const long level = set == nullptr ? DEFAULT_LEVEL : std::strtol(set, &end, 10);
    return set == nullptr || end == set || *end != '\0' ? DEFAULT_LEVEL : static_cast<int>(level);
}

std::atomic<int> g_level{LevelFromEnvironment()};

// Guards the sink, also while the sink runs: the one call-out under a lock, so that replacing a sink waits
// for it. The innermost lock of the process; recursive, since a sink may log.
std::recursive_mutex g_sinkMutex;
void* g_sinkContext = nullptr;
std::atomic<pl_log_sink> g_sink{nullptr};

bool GiveToSink(int module, int level, const char* file, int line, const LogText& text) {
    if (g_sink.load() == nullptr) {
        return false;
    }
    const std::lock_guard<std::recursive_mutex> lock(g_sinkMutex);
    const pl_log_sink sink = g_sink.load();
    if (sink == nullptr) {
        return false;
    }
    sink(g_sinkContext, module, level, file, line, text.Text());
    return true;
}

// Guards the output and the count, which is of lines that could not be written.
std::mutex g_outputMutex;
LogOutput g_output;
std::uint64_t g_dropped = 0;

// A line's time and place.
void Begin(LogText& out, int module, int level, const char* file, int line) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    ::gmtime_r(&now.tv_sec, &utc);
    out.Format("%04d-%02d-%02dT%02d:%02d:%02d.%03dZ %d %d %s:%d ", utc.tm_year + 1900, utc.tm_mon + 1,
               utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now.tv_nsec / 1000000),
               module, level, file, line);
}

bool TellDropped() {
    LogText out;
    out.Append("\n", g_output.IsCut() ? 1 : 0);
    Begin(out, 1, 3, __FILE__, __LINE__);
    out.Format("%" PRIu64 " lines were dropped, since the log had no room\n", g_dropped);
    return g_output.Writes(out);
}

void Write(const LogText& line) {
    const std::lock_guard<std::mutex> lock(g_outputMutex);
    if (g_dropped > 0 && TellDropped()) {
        g_dropped = 0;
    }
    if (g_dropped > 0 || !g_output.Writes(line)) {
        ++g_dropped;
    }
}

PL_LOG_PRINTF(5, 0)
void Emit(int module, int level, const char* file, int line, const char* format, std::va_list arguments) {
    LogText raw;
    raw.FormatList(format, arguments);
    std::size_t length = raw.Length();
    if (length > 0 && raw.Text()[length - 1] == '\n') {
        --length;
    }
    LogText text;
    text.AppendEscaped(raw.Text(), length);
    if (GiveToSink(module, level, file, line, text)) {
        return;
    }
    LogText out;
    Begin(out, module, level, file, line);
    out.Append(text.Text(), text.Length());
    out.Append("\n", 1);
    if (level > 0) {
        LogBudget::Charge(level, file, line, out.Length());
    }
    Write(out);
}

// Tracing is on when somebody asked for it, and is never dropped. Other lines count against the budget of the
// client whose request is served.
bool IsAdmitted(int level, const char* file, int line) {
    return level <= 0 || g_sink.load() != nullptr || LogBudget::Admits(level, file, line);
}

} // namespace

extern "C" {

void PL_WriteLog(int module, int level, int, int, const char* file, int line, const char* format, ...) {
    file = file != nullptr ? file : "?";
    if (level < g_level.load(std::memory_order_relaxed) || !IsAdmitted(level, file, line)) {
        return;
    }
    const int kept = errno;
    std::va_list arguments;
    va_start(arguments, format);
    Emit(module, level, file, line, format, arguments);
    va_end(arguments);
    errno = kept;
}

void pl_log_set_level(int level) {
    g_level = level;
}

void pl_log_set_sink(pl_log_sink sink, void* context) {
    const std::lock_guard<std::recursive_mutex> lock(g_sinkMutex);
    g_sink = sink;
    g_sinkContext = context;
}

} // extern "C"
