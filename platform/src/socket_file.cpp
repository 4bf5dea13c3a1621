// Two servers of one name must never both serve, and clients must never find a socket that is not open to
// them yet. The lock decides who serves. The socket is bound under a private name, gets its group and mode,
// listens, and is then renamed to its own name, over that of a server that died.
#include "socket_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "fence.h"
#include "limits.h"
#include "paths.h"

namespace Kestrel {

namespace {

enum class Occupant { NONE, DEAD_SERVER, OTHER };

// Who is at the path. The lock is ours by now, but a server of an earlier version holds none: one that lives
// accepts a connection, or its queue is full; the socket of a dead one refuses.
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

// A name in the same directory that nobody expects, and short, since addresses are.
std::string PrivateName(const std::string& path) {
    std::uint32_t random = 0;
    while (::getrandom(&random, sizeof random, 0) < 0 && errno == EINTR) {
    }
    char name[10];
    std::snprintf(name, sizeof name, ".%08x", unsigned{random});
    return path.substr(0, path.rfind('/') + 1) + name;
}

// To its owner alone, whatever the umask; a name that exists is refused, a link included.
bool BindClosed(int fd, const std::string& path) {
    sockaddr_un address;
    if (!MakeAddress(path, &address)) {
        errno = ENAMETOOLONG;
        return false;
    }
    const void* untyped = &address;
    return ::fchmod(fd, 0600) == 0 && ::bind(fd, static_cast<const sockaddr*>(untyped), sizeof address) == 0;
}

} // namespace

bool SocketFile::Listen(const std::string& path, const SocketAccess& access) {
    if (!Bind(path, access)) {
        m_socket.Close();
        m_lock.Close();
        return false;
    }
    return true;
}

bool SocketFile::Lock(const std::string& path) {
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    m_lock = Descriptor(::open((path + ".lock").c_str(), flags, 0600));
    struct stat found {};
    if (m_lock.IsOpen() && ::fstat(m_lock.Get(), &found) == 0 && !S_ISREG(found.st_mode)) {
        KESTREL_LOG(3, "%s.lock: taken by another file", path.c_str());
        return false;
    }
    // Whoever may read it could lock it, too.
    const bool closed = m_lock.IsOpen() && ((found.st_mode & 077) == 0 || ::fchmod(m_lock.Get(), 0600) == 0);
    if (closed && ::flock(m_lock.Get(), LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    KESTREL_LOG(3, "%s: %s", path.c_str(),
                errno == EWOULDBLOCK ? "taken by a running server" : std::strerror(errno));
    return false;
}

bool SocketFile::Bind(const std::string& path, const SocketAccess& access) {
    sockaddr_un address;
    if (!MakeAddress(path, &address)) {
        KESTREL_LOG(3, "%s: the path is too long for a socket", path.c_str());
        return false;
    }
    if (!Lock(path)) {
        return false;
    }
    const Occupant occupant = Probe(path, address);
    if (occupant == Occupant::OTHER) {
        KESTREL_LOG(3, "%s: taken by a server without a lock or another file", path.c_str());
        return false;
    }
    m_socket = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const std::string made = PrivateName(path);
    if (!m_socket.IsOpen() || !BindClosed(Get(), made)) {
        KESTREL_LOG(3, "%s: cannot be bound: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    if (!OpenToClients(made, access) || ::rename(made.c_str(), path.c_str()) != 0) {
        KESTREL_LOG(3, "%s: cannot be opened to clients: %s", path.c_str(), std::strerror(errno));
        ::unlink(made.c_str());
        return false;
    }
    m_path = path;
    return true;
}

// Looks at the name once: a link that others put there is not followed, and nothing but a socket changes its
// group and mode. Clients find it under its own name only when it has both.
bool SocketFile::OpenToClients(const std::string& made, const SocketAccess& access) {
    const Descriptor file(::open(made.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::string handle = "/proc/self/fd/" + std::to_string(file.Get());
    errno = file.IsOpen() ? ENOTSOCK : errno;
    return ::fstat(file.Get(), &m_identity) == 0 && S_ISSOCK(m_identity.st_mode) &&
           (access.group == SocketAccess().group ||
            ::fchownat(file.Get(), "", static_cast<uid_t>(-1), access.group, AT_EMPTY_PATH) == 0) &&
           ::chmod(handle.c_str(), access.mode) == 0 && ::listen(Get(), LISTEN_BACKLOG) == 0;
}

void SocketFile::StopListening() {
    struct stat found {};
    if (!m_path.empty() && ::lstat(m_path.c_str(), &found) == 0 && found.st_dev == m_identity.st_dev &&
        found.st_ino == m_identity.st_ino) {
        ::unlink(m_path.c_str());
    }
    m_path.clear();
    m_socket.Close();
}

} // namespace Kestrel
