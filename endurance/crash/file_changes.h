// Waits for a moment that was drawn, by the changes of a directory's files.
#ifndef CRASH_FILE_CHANGES_H
#define CRASH_FILE_CHANGES_H

#include <chrono>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

#include "program.h"

namespace Endurance {

// When to kill: with the given change of a watched file (a save changes its file twice: it is emptied, then
// written; 0: only by time), and then a little later; at the latest when the time is over.
struct KillMoment {
    int fileChange = 0;
    std::chrono::microseconds lag{0};
    std::chrono::microseconds latest{0};
};

// Sees the changes from its construction on; the moment is awaited by any one thread.
class FileChanges {
public:
    explicit FileChanges(const std::string& directory) : m_watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        Require(::inotify_add_watch(m_watch, directory.c_str(), IN_MODIFY) >= 0,
                directory + ": cannot be watched");
    }
    FileChanges(const FileChanges&) = delete;
    FileChanges& operator=(const FileChanges&) = delete;
    ~FileChanges() { ::close(m_watch); }

    // Changes that are so close together that they are read at once count as one.
    void Await(const KillMoment& moment) const {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + moment.latest;
        if (moment.fileChange == 0) {
            std::this_thread::sleep_until(deadline);
        }
        for (int left = moment.fileChange; left > 0 && Clock::now() < deadline;) {
            const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd entry{m_watch, POLLIN, 0};
            char records[4096];
            left -= ::poll(&entry, 1, static_cast<int>(wait.count())) > 0 &&
                            ::read(m_watch, records, sizeof records) > 0
                        ? 1
                        : 0;
        }
        // Too short for the scheduler: a sleep would take a multiple of it.
        const auto end = Clock::now() + moment.lag;
        while (Clock::now() < end) {
        }
    }

private:
    const int m_watch;
};

} // namespace Endurance

#endif
