#include "log_lines.h"

#include <algorithm>
#include <regex>
#include <utility>

#include "pl/pl_log_control.h"

namespace Support {

namespace {

std::mutex g_mutex;
std::set<std::string> g_places; // guarded by g_mutex

} // namespace

LogLines::LogLines(std::string directory, int module, int level) :
    m_directory(std::move(directory)), m_module(module) {
    pl_log_set_level(level);
    pl_log_set_sink(Take, this);
}

LogLines::~LogLines() {
    pl_log_set_sink(nullptr, nullptr);
    pl_log_set_level(1);
}

void LogLines::Take(void* self, int module, int level, const char* file, int line, const char* text) {
    auto* const log = static_cast<LogLines*>(self);
    if (log->m_module == EVERY_MODULE || log->m_module == module) {
        const std::lock_guard<std::mutex> lock(log->m_mutex);
        log->m_lines.push_back(std::to_string(level) + " " + text);
    }
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_places.insert(std::string(file) + ":" + std::to_string(line));
}

Lines LogLines::Of(const Lines& parts, int lowestLevel) {
    static const std::regex descriptor("fd\\[[0-9]+\\]");
    Lines found;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::string line : m_lines) {
        for (size_t at = 0;
             m_directory.size() > 1 && (at = line.find(m_directory, at)) != std::string::npos;) {
            line.erase(at, m_directory.size());
        }
        line = std::regex_replace(line, descriptor, "fd[N]");
        const bool asked = std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
            return line.find(part) != std::string::npos;
        });
        if (line[0] - '0' >= lowestLevel && (parts.empty() || asked)) {
            found.push_back(line);
        }
    }
    return found;
}

void LogLines::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

std::set<std::string> LogLines::Places() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_places;
}

} // namespace Support
