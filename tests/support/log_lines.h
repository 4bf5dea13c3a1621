#ifndef TESTS_SUPPORT_LOG_LINES_H
#define TESTS_SUPPORT_LOG_LINES_H

#include <algorithm>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pl/pl_log_control.h"

namespace Support {

using Lines = std::vector<std::string>;

// The lines that are logged while it lives, as "level text", a directory and descriptors' numbers cut out, so
// that they can be compared. Threads: the sink is called from any. One at a time.
class LogLines {
public:
    static constexpr int EVERY_MODULE = -1;

    explicit LogLines(std::string directory = "/", int module = EVERY_MODULE, int level = 1) :
        m_directory(std::move(directory)), m_module(module) {
        pl_log_set_level(level);
        pl_log_set_sink(Take, this);
    }
    ~LogLines() {
        pl_log_set_sink(nullptr, nullptr);
        pl_log_set_level(1);
    }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // Lines that contain one of the parts; all lines when none is given. Traces only on request.
    Lines Of(const Lines& parts = {}, int lowestLevel = 1) {
        static const std::regex descriptor("fd\\[[0-9]+\\]");
        Lines found;
        const std::lock_guard<std::mutex> lock(s_mutex);
        for (std::string line : m_lines) {
            for (size_t at = 0;
                 m_directory.size() > 1 && (at = line.find(m_directory)) != std::string::npos;) {
                line.erase(at, m_directory.size());
            }
            line = std::regex_replace(line, descriptor, "fd[N]");
            const auto isIn = [&](const std::string& part) { return line.find(part) != std::string::npos; };
            if (line[0] - '0' >= lowestLevel &&
                (parts.empty() || std::any_of(parts.begin(), parts.end(), isIn))) {
                found.push_back(line);
            }
        }
        return found;
    }
    size_t Count(const std::string& part) { return Of({part}, 0).size(); }
    // The lines of level 3.
    Lines Errors() { return Of({}, 3); }
    void Clear() {
        const std::lock_guard<std::mutex> lock(s_mutex);
        m_lines.clear();
    }

    // Where any line of this process came from until now, as "file:line".
    static std::set<std::string> Places() {
        const std::lock_guard<std::mutex> lock(s_mutex);
        return s_places;
    }

private:
    static void Take(void* self, int module, int level, const char* file, int line, const char* text) {
        auto* const log = static_cast<LogLines*>(self);
        const std::lock_guard<std::mutex> lock(s_mutex);
        if (log->m_module == EVERY_MODULE || log->m_module == module) {
            log->m_lines.push_back(std::to_string(level) + " " + text);
        }
        s_places.insert(std::string(file) + ":" + std::to_string(line));
    }

    inline static std::mutex s_mutex;
    inline static std::set<std::string> s_places; // guarded by s_mutex

    const std::string m_directory;
    const int m_module;
    Lines m_lines; // guarded by s_mutex
};

} // namespace Support

#endif
