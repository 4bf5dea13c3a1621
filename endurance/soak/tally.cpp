#include "tally.h"

#include <cstdio>

namespace Endurance {

void Tally::Count(appcfg::Request request, uint16_t status) {
    ++m_replies;
    Count(appcfg::RequestName(request) + (status == 200 ? "" : ", refused " + std::to_string(status)));
}

void Tally::Count(const std::string& what) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counts[what];
}

void Tally::Fail(const std::string& text) {
    m_ended = true;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failure.empty()) {
        m_failure = text;
    }
}

std::string Tally::Failure() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failure;
}

std::string Tally::Text() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string text;
    for (const auto& [what, count] : m_counts) {
        char line[80];
        std::snprintf(line, sizeof line, "  %-28s %10llu\n", what.c_str(),
                      static_cast<unsigned long long>(count));
        text += line;
    }
    return text;
}

} // namespace Endurance
