#include "server.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "event_mgr.h"
#include "socket_io.h"

namespace Kestrel {

namespace {

// A local socket does not pass its buffer sizes on to what it accepts.
void CopyBuffer(int from, int to, int option) {
    int size = 0;
    socklen_t length = sizeof size;
    if (::getsockopt(from, SOL_SOCKET, option, &size, &length) == 0) {
        size /= 2; // the kernel tells twice of what was set
        ::setsockopt(to, SOL_SOCKET, option, &size, sizeof size);
    }
}

} // namespace

Server::Server(EventMgr& mgr, const kestrel_server_ops* ops) :
    kestrel_server{-1, nullptr, nullptr}, m_mgr(mgr), m_ops(ops) {}

Server::~Server() {
    CloseConnections();
}

bool Server::Start(const std::string& path, const SocketAccess& access) {
    m_name = path;
    if (!m_file.Listen(path, access)) {
        return false;
    }
    fd = m_file.Get();
    m_acceptable = Event::Make<&Server::OnAcceptable>(Base(), fd, EV_READ | EV_PERSIST, this);
    m_retry = Event::Make<&Server::OnRetry>(Base(), -1, 0, this);
    int result = -1;
    Fenced("a start callback", [&] { result = m_ops->start(this, nullptr); });
    m_started = result == 0;
    if (!m_started || protocol_ops == nullptr || protocol_ops->message == nullptr || !m_acceptable.Add()) {
        KESTREL_LOG(3, "%s: the service did not start, result %d", path.c_str(), result);
        StopAccepting();
        return false;
    }
    return true;
}

void Server::StopAccepting() {
    m_acceptable.Remove();
    m_retry.Remove();
    m_paused = false;
    m_file.StopListening();
    fd = -1;
}

void Server::CloseConnections() {
    while (!m_connections.empty()) {
        m_connections.front().TellClosed();
        m_connections.pop_front();
    }
    if (m_started && m_ops->stop != nullptr) {
        Fenced("a stop callback", [this] { m_ops->stop(this, nullptr); });
    }
    m_started = false;
}

event_base* Server::Base() {
    return m_mgr.Base();
}

MessageStore& Server::Store() {
    return m_mgr.Store();
}

void Server::End(std::list<Connection>::iterator connection) {
    EventMgr& mgr = m_mgr;
    connection->TellClosed();
    m_connections.erase(connection);
    mgr.ConnectionEnded();
}

void Server::HeldChanged(std::size_t before, std::size_t now) {
    m_mgr.HeldChanged(before, now);
}

Connection* Server::FirstToClose(Connection* first) {
    for (Connection& connection : m_connections) {
        first = connection.IsClosedBefore(first) ? &connection : first;
    }
    return first;
}

void Server::OnAcceptable() {
    const LogBudget::Scope lines(m_lines);
    for (int i = 0; i < ACCEPTS_PER_TURN; ++i) {
        if (!HasDescriptorsToSpare()) {
            return PauseAccepting("few descriptors are left");
        }
        if (!AcceptOne()) {
            return;
        }
    }
}

// False when there is nobody more to accept for now.
bool Server::AcceptOne() {
    Descriptor client(::accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client.IsOpen()) {
        Adopt(std::move(client));
        return true;
    }
    if (WouldBlock()) {
        return false;
    }
    if (errno == EINTR || errno == ECONNABORTED) {
        return true;
    }
    PauseAccepting(std::strerror(errno));
    return false;
}

void Server::Adopt(Descriptor client) {
    if (std::exchange(m_short, false)) {
        KESTREL_LOG(1, "%s: accepting again", m_name.c_str());
    }
    CopyBuffer(fd, client.Get(), SO_SNDBUF);
    CopyBuffer(fd, client.Get(), SO_RCVBUF);
    // Without the memory for it the client is turned away; the fence of the callback has the line.
    Connection& connection = m_connections.emplace_back(*this, std::move(client));
    connection.Start(std::prev(m_connections.end()));
    if (connection_ops != nullptr && connection_ops->opened != nullptr) {
        Fenced("an opened callback", [&] { connection_ops->opened(&connection); });
    }
}

// All descriptors below the lowest free one are taken. The reserve above is the service's: no connection gets
// one of it.
bool Server::HasDescriptorsToSpare() const {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const auto most = static_cast<std::uint64_t>(limit.rlim_cur);
    const std::uint64_t reserve = std::min(DESCRIPTOR_RESERVE, most / 4);
    const Descriptor lowest(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    return lowest.IsOpen() && static_cast<std::uint64_t>(lowest.Get()) + reserve < most;
}

void Server::PauseAccepting(const char* reason) {
    m_paused = true;
    if (!m_short) {
        m_short = true;
        KESTREL_LOG(3, "%s: accepting pauses: %s", m_name.c_str(), reason);
    }
    m_acceptable.Remove();
    m_retry.AddTimer(ACCEPT_RETRY_MS);
}

void Server::OnRetry() {
    TryToResume();
    if (m_paused) {
        m_retry.AddTimer(ACCEPT_RETRY_MS);
    }
}

void Server::TryToResume() {
    if (m_paused && HasDescriptorsToSpare() && m_acceptable.Add()) {
        m_paused = false;
        m_retry.Remove();
    }
}

} // namespace Kestrel
