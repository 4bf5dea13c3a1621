#ifndef KESTREL_LOG_OUTPUT_H
#define KESTREL_LOG_OUTPUT_H

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>

#include "log_text.h"

namespace Kestrel {

// Standard error, whose reader may stall or be slow: of all time, a tenth at most is spent waiting for it,
// and what finds no room then is not written. Locked by its owner, the log, which it lives as long as.
class LogOutput {
public:
    // False when the line could not be written, or not to its end.
    bool Writes(const LogText& line);

    // The last line that was not written left its beginning.
    bool IsCut() const { return m_cut; }

private:
    using Clock = std::chrono::steady_clock;

    void Follow();
    int Target() const;
    ssize_t WriteSome(const char* text, std::size_t length) const;
    bool WaitsForRoom();

    bool m_cut = false;
    int m_own = -1; // stays open: threads log until the process ends
    dev_t m_device = 0;
    ino_t m_inode = 0;
    Clock::duration m_patience{};
    Clock::time_point m_since{};
};

} // namespace Kestrel

#endif
