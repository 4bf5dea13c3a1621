#include "log_budget.h"

#include <cinttypes>
#include <utility>

namespace Kestrel {

namespace {

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
    const std::size_t place = reinterpret_cast<std::uintptr_t>(file) + static_cast<std::size_t>(line);
    budget.m_share = level < 3 ? 0 : 1 + place % LOG_PLACES;
    const bool admitted =
        budget.m_used[budget.m_share] < (level < 3 ? LOG_SHARE_OF_INFORMATION : LOG_SHARE_OF_PLACE);
    budget.m_dropped += admitted ? 0 : 1;
    return admitted;
}

void LogBudget::Charge(std::size_t length) {
    if (t_current != nullptr) {
        t_current->m_isUsed = true;
        std::uint16_t& used = t_current->m_used[t_current->m_share];
        used = static_cast<std::uint16_t>(used + 1 + length / LOG_SHARE_LENGTH);
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
        m_used.fill(0);
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
