#include "event_mgr.h"

#include <malloc.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "limits.h"
#include "stop_signals.h"

namespace Kestrel {

namespace {

// Only one thread touches a loop; stopping it goes through a descriptor.
event_base* NewBase() {
    event_config* config = event_config_new();
    event_base* base = nullptr;
    if (config != nullptr) {
        event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
        base = event_base_new_with_config(config);
        event_config_free(config);
    }
    if (base == nullptr) {
        throw std::bad_alloc();
    }
    return base;
}

} // namespace

EventMgr::EventMgr() : m_base(NewBase()), m_stopFd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!m_stopFd.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    m_stop = Event::Make<&EventMgr::OnStop>(Base(), m_stopFd.Get(), EV_READ | EV_PERSIST, this);
    m_timeout = Event::Make<&EventMgr::OnTimeout>(Base(), -1, 0, this);
    m_trim = Event::Make<&EventMgr::OnTrim>(Base(), -1, 0, this);
    if (!m_stop.Add()) {
        throw std::bad_alloc();
    }
}

EventMgr::~EventMgr() = default;

bool EventMgr::Register(const std::string& path, const kestrel_server_ops* ops, const SocketAccess& access) {
    Server& server = m_servers.emplace_back(*this, ops);
    bool started = false;
    Fenced("registering a server", [&] { started = server.Start(path, access); });
    if (!started) {
        m_servers.pop_back();
    }
    return started;
}

int EventMgr::Run(int timeout) {
    const StopSignals signals(m_stopFd.Get());
    if (!signals.AreCaught()) {
        KESTREL_LOG(3, "more than %zu loops run in this process", MAX_RUNNING_LOOPS);
        return -1;
    }
    if (StopSignals::HaveCome()) {
        Stop();
    }
    m_stopped = false;
    if (timeout >= 0 && !m_timeout.AddTimer(timeout)) {
        return -1;
    }
    const int result = event_base_dispatch(Base());
    m_timeout.Remove();
    if (result < 0) {
        return -1;
    }
    return m_stopped ? 0 : 1;
}

void EventMgr::Stop() {
    const std::uint64_t one = 1;
    while (::write(m_stopFd.Get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void EventMgr::OnStop() {
    std::uint64_t count = 0;
    while (::read(m_stopFd.Get(), &count, sizeof count) < 0 && errno == EINTR) {
    }
    for (Server& server : m_servers) {
        server.StopAccepting();
    }
    for (Server& server : m_servers) {
        server.CloseConnections();
    }
    m_stopped = true;
    event_base_loopbreak(Base());
}

void EventMgr::OnTimeout() {
    event_base_loopbreak(Base());
}

void EventMgr::OnTrim() {
    ::malloc_trim(0);
}

void EventMgr::ConnectionEnded() {
    for (Server& server : m_servers) {
        server.TryToResume();
    }
    if (!m_trim.IsPending()) {
        m_trim.AddTimer(TRIM_AFTER_MS);
    }
}

// Closing one counts what is held again, and closes the next where it was not enough.
void EventMgr::HeldChanged(std::size_t before, std::size_t now) {
    m_held -= std::max(before, FREE_HELD) - FREE_HELD;
    m_held += std::max(now, FREE_HELD) - FREE_HELD;
    if (m_held <= MAX_HELD) {
        return;
    }
    Connection* first = nullptr;
    for (Server& server : m_servers) {
        first = server.FirstToClose(first);
    }
    KESTREL_LOG_ENDED("connection fd[%d]: holds %zu bytes, and all together too many, closed", first->fd,
                      first->Held());
    first->MarkLost();
}

} // namespace Kestrel
