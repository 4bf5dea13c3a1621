#ifndef TESTS_SUPPORT_LOG_LINES_H
#define TESTS_SUPPORT_LOG_LINES_H

#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Support {

using Lines = std::vector<std::string>;

// The lines that are logged while it lives, as "level text", a directory and descriptors' numbers cut out, so
// that they can be compared. Threads: the sink is called from any. One at a time.
class LogLines {
public:
    static constexpr int EVERY_MODULE = -1;

    explicit LogLines(std::string directory = "/", int module = EVERY_MODULE, int level = 1);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // Lines that contain one of the parts; all lines when none is given. Traces only on request.
    Lines Of(const Lines& parts = {}, int lowestLevel = 1);
    size_t Count(const std::string& part) { return Of({part}, 0).size(); }
    // The lines of level 3.
    Lines Errors() { return Of({}, 3); }
    void Clear();

    // Where any line of this process came from until now, as "file:line".
    static std::set<std::string> Places();

private:
    static void Take(void* self, int module, int level, const char* file, int line, const char* text);

    const std::string m_directory;
    const int m_module;
    std::mutex m_mutex;
    Lines m_lines; // guarded by m_mutex
};

} // namespace Support

#endif
