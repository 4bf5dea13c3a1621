#ifndef KESTREL_SOCKET_IO_H
#define KESTREL_SOCKET_IO_H

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>

namespace Kestrel {

// The last call found nothing to read, or no room to write.
inline bool WouldBlock() {
    static_assert(EAGAIN == EWOULDBLOCK);
    return errno == EAGAIN;
}

// send, restarted when a signal interrupts it; a vanished peer is an error and never a signal.
inline ssize_t SendBytes(int fd, const void* bytes, std::size_t length) {
    ssize_t sent = 0;
    do {
        sent = ::send(fd, bytes, length, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

// The same of a list.
inline ssize_t SendParts(int fd, iovec* parts, std::size_t count, int flags = 0) {
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = count;
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(fd, &header, MSG_NOSIGNAL | flags);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

// Moves past the first bytes of a list of parts. Returns how many whole parts that leaves behind; what
// lies beyond the list stays in `bytes`.
inline std::size_t SkipParts(iovec* parts, std::size_t count, std::size_t* bytes) {
    std::size_t i = 0;
    for (; i < count && *bytes >= parts[i].iov_len; ++i) {
        *bytes -= parts[i].iov_len;
    }
    if (i < count) {
        parts[i].iov_base = static_cast<unsigned char*>(parts[i].iov_base) + *bytes;
        parts[i].iov_len -= *bytes;
        *bytes = 0;
    }
    return i;
}

} // namespace Kestrel

#endif
