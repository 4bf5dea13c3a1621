#include <poll.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <vector>

#include "connection.h"
#include "socket_io.h"

using Kestrel::Connection;
using Kestrel::Message;

namespace {

// The time that a whole message may take: the descriptor's time-out, which the kernel would begin anew with
// every call, byte or signal.
class Deadline {
public:
    Deadline(int fd, int option, short event) : m_fd(fd), m_event(event) {
        timeval limit{};
        socklen_t length = sizeof limit;
        m_isSet =
            ::getsockopt(fd, SOL_SOCKET, option, &limit, &length) == 0 && (limit.tv_sec | limit.tv_usec) != 0;
        m_end += std::chrono::seconds(limit.tv_sec) + std::chrono::microseconds(limit.tv_usec);
    }

    // Waits until the descriptor is ready. False when the time is over, with EAGAIN.
    bool Waits() const {
        int ready = 0;
        do {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now()).count();
            pollfd socket{m_fd, m_event, 0};
            ready =
                ::poll(&socket, 1, m_isSet ? static_cast<int>(std::clamp<long long>(left, 0, INT_MAX)) : -1);
        } while (ready < 0 && errno == EINTR);
        errno = ready == 0 ? EAGAIN : errno;
        return ready > 0;
    }

private:
    using Clock = std::chrono::steady_clock;

    const int m_fd;
    const short m_event;
    bool m_isSet = false;
    Clock::time_point m_end = Clock::now();
};

int SendWhole(Message& msg, int fd) {
    Kestrel::WireHead head;
    if (!msg.CompleteHead(&head)) {
        errno = ENOMEM;
        return -1;
    }
    std::vector<iovec> parts{{&head, sizeof head}};
    parts.insert(parts.end(), msg.Pieces(), msg.Pieces() + msg.PieceCount());
    const Deadline deadline(fd, SO_SNDTIMEO, POLLOUT);
    std::size_t done = 0;
    while (done < parts.size()) {
        const std::size_t left = parts.size() - done;
        const ssize_t sent =
            Kestrel::SendParts(fd, &parts[done], std::min<std::size_t>(left, IOV_MAX), MSG_DONTWAIT);
        if (sent < 0) {
            if (!Kestrel::WouldBlock() || !deadline.Waits()) {
                return -1;
            }
            continue;
        }
        auto bytes = static_cast<std::size_t>(sent);
        done += Kestrel::SkipParts(&parts[done], left, &bytes);
    }
    return 0;
}

// One recv, once there is something to receive; 0 when there is no more to come.
std::size_t ReceiveSome(int fd, const Deadline& deadline, unsigned char* memory, std::size_t room) {
    ssize_t got = 0;
    do {
        got = ::recv(fd, memory, room, MSG_DONTWAIT);
    } while (got < 0 && (errno == EINTR || (Kestrel::WouldBlock() && deadline.Waits())));
    if (got == 0) {
        errno = ECONNRESET;
    }
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// The length of the frame that the header at the front of the memory begins, or 0.
std::size_t AnnouncedLength(const Kestrel::FrameMemory& memory) {
    tern_header header;
    std::memcpy(&header, memory.Data(), sizeof header);
    const std::size_t length = Kestrel::FrameLength(header);
    if (length == 0) {
        errno = EBADMSG;
    }
    return length;
}

// Never reads beyond the frame, and takes memory as the data comes.
int ReceiveWhole(Message& msg, int fd) {
    msg.BeginReceive();
    const Deadline deadline(fd, SO_RCVTIMEO, POLLIN);
    Kestrel::FrameMemory& memory = msg.Frame();
    std::size_t have = 0;
    std::size_t length = Kestrel::HEAD_LENGTH;
    bool announced = false;
    while (have < length) {
        if (!memory.Reserve(std::max(Kestrel::FRAME_ROOM, std::min(length, 2 * have)))) {
            errno = ENOMEM;
            return -1;
        }
        const std::size_t wanted = std::min(length, memory.Room()) - have;
        const std::size_t got = ReceiveSome(fd, deadline, memory.Data() + have, wanted);
        if (got == 0) {
            return -1;
        }
        have += got;
        if (!announced && have >= Kestrel::HEADER_LENGTH) {
            announced = true;
            length = AnnouncedLength(memory);
            if (length == 0) {
                return -1;
            }
        }
    }
    msg.AdoptFrame(length);
    return 0;
}

} // namespace

extern "C" {

void* pcalloc(kestrel_pool* pool, size_t size) {
    return pool == nullptr ? nullptr : pool->Allocate(size);
}

tern_message* tern_message_new(int) {
    return Message::New();
}

void tern_message_put(tern_message* msg) {
    if (msg != nullptr) {
        Message::From(msg).Delete();
    }
}

int tern_content(tern_message* msg, void** content, uint32_t* len) {
    return Message::From(msg).Payload(content, len) ? 0 : -1;
}

void* tern_content_struct(tern_message* msg, uint32_t offset, uint32_t len) {
    return Message::From(msg).Section(offset, len);
}

int tern_content_add(tern_message* msg, const void* data, uint32_t len, int) {
    return Message::From(msg).AddPiece(data, len) ? 0 : -1;
}

void tern_content_clear(tern_message* msg) {
    Message::From(msg).ClearContent();
}

void tern_header_clear(tern_message* msg) {
    Message::From(msg).ClearHeader();
}

int tern_message_async_send(tern_message* msg, kestrel_connection* conn, int) {
    int result = -1;
    Kestrel::Fenced("tern_message_async_send",
                    [&] { result = static_cast<Connection*>(conn)->Send(Message::From(msg)); });
    return result;
}

int tern_message_sendfd(tern_message* msg, int fd) {
    int result = -1;
    Kestrel::Fenced("tern_message_sendfd", [&] { result = SendWhole(Message::From(msg), fd); });
    return result;
}

int tern_message_recvfd(tern_message* msg, int fd) {
    int result = -1;
    Kestrel::Fenced("tern_message_recvfd", [&] { result = ReceiveWhole(Message::From(msg), fd); });
    return result;
}

} // extern "C"
