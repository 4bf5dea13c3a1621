#include "tally.h"

#include <cstdio>

namespace Endurance {

namespace {

std::string Line(const std::string& name, uint64_t count) {
    char line[80];
    std::snprintf(line, sizeof line, "  %-28s %10llu\n", name.c_str(),
                  static_cast<unsigned long long>(count));
    return line;
}

} // namespace

void Tally::Count(appcfg::Request request, uint16_t status) {
    ++m_replies;
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_requests[{request, status}];
}

void Tally::Count(const std::string& what) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_others[what];
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
    for (const auto& [kind, count] : m_requests) {
        const bool done = kind.second == 200;
        text +=
            Line(appcfg::RequestName(kind.first) + (done ? "" : ", refused " + std::to_string(kind.second)),
                 count);
    }
    for (const auto& [what, count] : m_others) {
        text += Line(what, count);
    }
    return text;
}

} // namespace Endurance
