// The service in this process, for programs.
#ifndef LIFE_SERVICE_H
#define LIFE_SERVICE_H

#include <atomic>
#include <optional>

#include "pl/pl_log_control.h"
#include "support/running_service.h"

namespace Endurance {

// Owns a framework root and the service in it. Its log lines go nowhere, those of level 3 are counted. One at
// a time.
class Service {
public:
    Service() {
        pl_log_set_level(3);
        pl_log_set_sink(
            [](void*, int, int level, const char*, int, const char*) { s_errorLines += level >= 3 ? 1 : 0; },
            nullptr);
        m_service.emplace();
    }
    ~Service() {
        m_service.reset();
        pl_log_set_sink(nullptr, nullptr);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    const std::string& Root() const { return m_root.Path(); }
    static size_t ErrorLines() { return s_errorLines; }

private:
    static inline std::atomic<size_t> s_errorLines{0};
    const Support::RootDirectory m_root{};
    std::optional<Support::RunningService> m_service{};
};

} // namespace Endurance

#endif
