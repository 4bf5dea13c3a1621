#ifndef KESTREL_LOG_BUDGET_H
#define KESTREL_LOG_BUDGET_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "fence.h"
#include "limits.h"

namespace Kestrel {

// How much of standard error the requests of one connection may fill within a second. Errors have a share for
// each place in the sources, so that only repeats exhaust it and no line hides another; information has one
// share of its own. What is more is dropped and told in one line, once the second is over. Owned by a
// connection, or by a server for clients that it accepts. Loop thread only.
class LogBudget {
public:
    // A descriptor below 0 stands for the clients that are being accepted.
    explicit LogBudget(int fd) : m_fd(fd) {}
    ~LogBudget();
    LogBudget(const LogBudget&) = delete;
    LogBudget& operator=(const LogBudget&) = delete;

    // Lines of this thread count while it lives.
    class Scope {
    public:
        explicit Scope(LogBudget& budget);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    // Lines of this thread do not count while it lives.
    class Pause {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

    private:
        LogBudget* const m_paused;
    };

    // False when a line of this thread is to be dropped. One that is written is charged, by its length.
    static bool Admits(int level, const char* file, int line);
    static void Charge(int level, const char* file, int line, std::size_t length);

private:
    // What one source line has written within the second. The file's name is a copy: a library whose line it
    // was may be gone when the next is compared with it.
    struct Place {
        std::string file;
        int line;
        std::size_t used = 0;
    };

    std::size_t* UsedBy(int level, const char* file, int line);
    void Renew();
    void Tell();

    const int m_fd;
    std::time_t m_second = 0;
    bool m_isUsed = false;
    std::size_t m_usedByInformation = 0;
    std::vector<Place> m_places; // that logged an error within the second
    std::uint64_t m_dropped = 0;
};

} // namespace Kestrel

// What ends a connection is told in any case, and cannot be repeated by it.
#define KESTREL_LOG_ENDED(...)                                                                               \
    do {                                                                                                     \
        const Kestrel::LogBudget::Pause uncounted;                                                           \
        KESTREL_LOG(3, __VA_ARGS__);                                                                         \
    } while (false)

#endif
