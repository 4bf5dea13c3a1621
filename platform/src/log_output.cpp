// A write to a terminal or a pipe may block for ever, also where poll has just found room: a terminal's
// answer says little, and another process may fill a pipe in between. So these are opened a second time,
// without blocking; the first descriptor stays as it is, since others share it. What cannot be opened again
// is polled.
#include "log_output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace Kestrel {

// Pieces of at most PIPE_BUF bytes are not mixed with those of other processes.
bool LogOutput::Writes(const LogText& line) {
    Follow();
    const char* rest = line.Text();
    const char* const end = rest + line.Length();
    bool waited = false;
    while (rest < end) {
        const ssize_t written =
            WriteSome(rest, std::min<std::size_t>(PIPE_BUF, static_cast<std::size_t>(end - rest)));
        if (written > 0) {
            rest += written;
            waited = false;
        } else if (errno == EBADF || errno == EPIPE) {
            break; // nobody is there to be told
        } else if (errno != EINTR && (errno != EAGAIN || std::exchange(waited, true) || !WaitsForRoom())) {
            m_cut = m_cut || rest != line.Text();
            return false;
        }
    }
    m_cut = false;
    return true;
}

// Standard error may have become another file.
void LogOutput::Follow() {
    struct stat now {};
    if (::fstat(STDERR_FILENO, &now) != 0 || (now.st_dev == m_device && now.st_ino == m_inode)) {
        return;
    }
    m_device = now.st_dev;
    m_inode = now.st_ino;
    if (m_own >= 0) {
        ::close(std::exchange(m_own, -1));
    }
    if (S_ISFIFO(now.st_mode) || ::isatty(STDERR_FILENO) == 1) {
        m_own = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
}

int LogOutput::Target() const {
    return m_own >= 0 ? m_own : STDERR_FILENO;
}

ssize_t LogOutput::WriteSome(const char* text, std::size_t length) const {
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    if (m_own < 0 && ::poll(&output, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    errno = 0;
    return ::write(Target(), text, length);
}

// Patience grows with a tenth of the time, up to LOG_PATIENCE_MS, and every wait uses it up.
bool LogOutput::WaitsForRoom() {
    using std::chrono::milliseconds;
    const auto spend = [this] { return Clock::now() - std::exchange(m_since, Clock::now()); };
    m_patience =
        std::min<Clock::duration>(milliseconds(LOG_PATIENCE_MS), m_patience + spend() / LOG_WAIT_SHARE);
    const auto patience = std::chrono::duration_cast<milliseconds>(m_patience);
    pollfd output{Target(), POLLOUT, 0};
    const bool ready = patience.count() > 0 && ::poll(&output, 1, static_cast<int>(patience.count())) > 0;
    m_patience -= spend();
    return ready;
}

} // namespace Kestrel
