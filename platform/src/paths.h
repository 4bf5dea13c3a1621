#ifndef KESTREL_PATHS_H
#define KESTREL_PATHS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace Kestrel {

// The directory of the services' sockets, with a slash at its end.
std::string RootDirectory();

// Where a service's device path lies on this machine.
std::string ResolvePath(const std::string& path);

// False when the path does not fit into a socket address.
bool MakeAddress(const std::string& path, sockaddr_un* address);

// connect, restarted when a signal interrupts it.
int ConnectTo(int fd, const sockaddr_un& address);

} // namespace Kestrel

#endif
