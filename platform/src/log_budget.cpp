// A client that repeats a request which fails could fill the disk with log lines. While one of its requests
// is served, the connection's budget is the thread's current one: the log asks it before a line is formatted,
// and charges it with what was written. Places are told apart by file and line, exactly: two that shared a
// share could hide each other's lines.
#include "log_budget.h"

#include <algorithm>
#include <cinttypes>
#include <new>
#include <utility>

namespace Kestrel {

namespace {

constexpr int ERROR_LEVEL = 3;

thread_local LogBudget* t_current = nullptr;

} // namespace

LogBudget::~LogBudget() {
    if (t_current == this) {
        t_current = nullptr;
    }
    Tell();
}

LogBudget::Scope::Scope(LogBudget& budget) {
    t_current = &budget;
    budget.Renew();
}

LogBudget::Scope::~Scope() {
    t_current = nullptr;
}

LogBudget::Pause::Pause() : m_paused(std::exchange(t_current, nullptr)) {}

LogBudget::Pause::~Pause() {
    t_current = m_paused;
}

bool LogBudget::Admits(int level, const char* file, int line) {
    if (t_current == nullptr) {
        return true;
    }
    LogBudget& budget = *t_current;
    budget.Renew();
    const std::size_t* const used = budget.UsedBy(level, file, line);
    const bool admitted =
        used != nullptr && *used < (level < ERROR_LEVEL ? LOG_SHARE_OF_INFORMATION : LOG_SHARE_OF_PLACE);
    budget.m_dropped += admitted ? 0 : 1;
    return admitted;
}

void LogBudget::Charge(int level, const char* file, int line, std::size_t length) {
    if (t_current != nullptr) {
        t_current->m_isUsed = true;
        if (std::size_t* const used = t_current->UsedBy(level, file, line)) {
            *used += 1 + length / LOG_SHARE_LENGTH;
        }
    }
}

// Null when there is no memory to remember the place: its lines are dropped, and counted, like repeats.
std::size_t* LogBudget::UsedBy(int level, const char* file, int line) {
    if (level < ERROR_LEVEL) {
        return &m_usedByInformation;
    }
    const auto place = std::find_if(m_places.begin(), m_places.end(), [&](const Place& known) {
        return known.line == line && known.file == file;
    });
    if (place != m_places.end()) {
        return &place->used;
    }
    try {
        return &m_places.emplace_back(Place{file, line}).used;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void LogBudget::Renew() {
    if (!m_isUsed) {
        return;
    }
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (m_second != now.tv_sec) {
        m_second = now.tv_sec;
        m_isUsed = false;
        m_usedByInformation = 0;
        m_places.clear();
        Tell();
    }
}

void LogBudget::Tell() {
    const std::uint64_t dropped = std::exchange(m_dropped, 0);
    const Pause uncounted;
    if (dropped > 0 && m_fd >= 0) {
        KESTREL_LOG(3, "connection fd[%d]: %" PRIu64 " more lines were dropped", m_fd, dropped);
    } else if (dropped > 0) {
        KESTREL_LOG(3, "new connections: %" PRIu64 " more lines were dropped", dropped);
    }
}

} // namespace Kestrel
