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
    int group = -1; // -1: the process's own
};

// A listening socket with its file. Owned by its server; loop thread only.
class SocketFile {
public:
    SocketFile() = default;
    ~SocketFile() { Close(); }
    SocketFile(SocketFile&&) = delete;

    // Binds and listens. A file that a dead server left is replaced. False, with one log line, otherwise.
    bool Listen(const std::string& path, const SocketAccess& access);

    // Stops listening and removes the file, unless it has become another server's.
    void Close();

    int Get() const { return m_socket.Get(); }

private:
    bool Bind(const std::string& path, const SocketAccess& access);

    Descriptor m_socket;
    std::string m_path;
    struct stat m_identity {};
};

} // namespace Kestrel

#endif
