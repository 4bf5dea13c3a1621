#include "socket_file.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "fence.h"
#include "limits.h"
#include "paths.h"

namespace Kestrel {

namespace {

enum class Occupant { NONE, DEAD_SERVER, OTHER };

// A server that lives takes the connection, or has no room for it just now; a dead one refuses.
Occupant Probe(const std::string& path, const sockaddr_un& address) {
    struct stat found {};
    if (::lstat(path.c_str(), &found) != 0) {
        return errno == ENOENT ? Occupant::NONE : Occupant::OTHER;
    }
    const Descriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const bool refused = S_ISSOCK(found.st_mode) && probe.IsOpen() && ConnectTo(probe.Get(), address) < 0 &&
                         errno == ECONNREFUSED;
    return refused ? Occupant::DEAD_SERVER : Occupant::OTHER;
}

} // namespace

bool SocketFile::Listen(const std::string& path, const SocketAccess& access) {
    if (!Bind(path, access)) {
        Close();
        return false;
    }
    return true;
}

bool SocketFile::Bind(const std::string& path, const SocketAccess& access) {
    sockaddr_un address;
    if (!MakeAddress(path, &address)) {
        KESTREL_LOG(3, "%s: the path is too long for a socket", path.c_str());
        return false;
    }
    const Occupant occupant = Probe(path, address);
    if (occupant == Occupant::OTHER) {
        KESTREL_LOG(3, "%s: taken by a running server or another file", path.c_str());
        return false;
    }
    if (occupant == Occupant::DEAD_SERVER) {
        ::unlink(path.c_str());
    }
    m_socket = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const void* untyped = &address;
    if (!m_socket.IsOpen() || ::bind(Get(), static_cast<const sockaddr*>(untyped), sizeof address) != 0) {
        KESTREL_LOG(3, "%s: cannot be bound: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    m_path = path;
    // Nobody can connect before listen, so the mode that the umask made is never in force.
    const auto group = static_cast<gid_t>(access.group);
    if (::lstat(path.c_str(), &m_identity) != 0 ||
        (access.group >= 0 && ::lchown(path.c_str(), static_cast<uid_t>(-1), group) != 0) ||
        ::chmod(path.c_str(), access.mode) != 0 || ::listen(Get(), LISTEN_BACKLOG) != 0) {
        KESTREL_LOG(3, "%s: cannot be opened to clients: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

void SocketFile::Close() {
    struct stat found {};
    if (!m_path.empty() && ::lstat(m_path.c_str(), &found) == 0 && found.st_dev == m_identity.st_dev &&
        found.st_ino == m_identity.st_ino) {
        ::unlink(m_path.c_str());
    }
    m_path.clear();
    m_socket.Close();
}

} // namespace Kestrel
