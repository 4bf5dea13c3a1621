#ifndef KESTREL_SOCKET_FILE_H
#define KESTREL_SOCKET_FILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "descriptor.h"

namespace Kestrel {

// Who may connect.
struct SocketAccess {
    mode_t mode = 0666;
    gid_t group = static_cast<gid_t>(-1); // the process's own
};

// A listening socket with its file, and a lock file beside it: whoever holds the lock is the server, from
// before it listens until this ends, since a service saves after it has stopped listening. The file stays
// when the server ends; removed, it could be locked twice. Owned by its server; loop thread only.
class SocketFile {
public:
    SocketFile() = default;
    ~SocketFile() { StopListening(); }
    SocketFile(SocketFile&&) = delete;

    // Locks, binds and listens. A file that a dead server left is replaced. False, with one log line,
    // otherwise.
    bool Listen(const std::string& path, const SocketAccess& access);

    // Removes the socket's file, unless it has become another server's. Keeps the lock.
    void StopListening();

    int Get() const { return m_socket.Get(); }

private:
    bool Lock(const std::string& path);
    bool Bind(const std::string& path, const SocketAccess& access);
    bool OpenToClients(const std::string& made, const SocketAccess& access);

    Descriptor m_lock;
    Descriptor m_socket;
    std::string m_path;
    struct stat m_identity {};
};

} // namespace Kestrel

#endif
