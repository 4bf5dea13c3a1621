#include "killer.h"

#include <poll.h>
#include <stdexcept>
#include <sys/inotify.h>
#include <unistd.h>

namespace Endurance {

namespace {

using Clock = std::chrono::steady_clock;

int Watch(const std::string& directory) {
    const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch < 0 || ::inotify_add_watch(watch, directory.c_str(), IN_MODIFY) < 0) {
        throw std::runtime_error(directory + ": cannot be watched");
    }
    return watch;
}

// How many changes have come; each record ends with a name of its own length.
int CountChanges(int watch) {
    alignas(inotify_event) char records[4096];
    const ssize_t length = ::read(watch, records, sizeof records);
    int changes = 0;
    for (ssize_t at = 0; at < length; ++changes) {
        const void* const record = records + at;
        at += static_cast<ssize_t>(sizeof(inotify_event) + static_cast<const inotify_event*>(record)->len);
    }
    return changes;
}

} // namespace

Killer::Killer(const HostProcess& host, const std::string& directory, const KillMoment& moment) :
    m_host(host), m_moment(moment), m_deadline(Clock::now() + moment.latest), m_watch(Watch(directory)),
    m_thread(&Killer::Run, this) {}

Killer::~Killer() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
    ::close(m_watch);
}

void Killer::Run() {
    if (m_moment.fileChange > 0) {
        AwaitFileChange();
    } else {
        std::this_thread::sleep_until(m_deadline);
    }
    m_host.SendKill();
}

void Killer::AwaitFileChange() {
    int left = m_moment.fileChange;
    while (left > 0 && Clock::now() < m_deadline) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now());
        pollfd entry{m_watch, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(wait.count())) > 0) {
            left -= CountChanges(m_watch);
        }
    }
    // Too short for the scheduler: a sleep would take a multiple of it.
    const auto end = Clock::now() + m_moment.lag;
    while (Clock::now() < end) {
    }
}

} // namespace Endurance
