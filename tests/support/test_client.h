// Frames as bytes, and one end of a connection that sends and receives them.
#ifndef TESTS_SUPPORT_TEST_CLIENT_H
#define TESTS_SUPPORT_TEST_CLIENT_H

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "records.h"
#include "tern/tern.h"

namespace Support {

struct Reply {
    tern_header header;
    uint32_t pieces;
    uint32_t firstLength;
    std::string payload;
};

// The bytes of a number as it stands in memory, and of a frame.
inline std::string Bytes(uint32_t number) {
    return BytesOf(number);
}
inline std::string FrameBytes(const Reply& frame) {
    return BytesOf(frame.header) + Bytes(frame.pieces) + Bytes(frame.firstLength) + frame.payload;
}
inline std::string Frame(uint8_t method, const std::string& payload = "", uint32_t sequence = 0,
                         uint16_t uri = 1) {
    const auto length = static_cast<uint32_t>(payload.size());
    return FrameBytes({{0x4E54, 0, method, uri, 0, sequence, length + 8}, 1, length, payload});
}

// One end of a connection that speaks in bytes, so that it can misbehave. Every wait ends after a deadline.
class TestClient {
public:
    explicit TestClient(const std::string& service = "test.orb") :
        TestClient(kestrel_open(("/mnt/kestrel/" + service).c_str(), O_RDWR)) {}
    // Takes a connected socket over.
    explicit TestClient(int fd) : m_fd(fd) {
        const timeval deadline{60, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
        ::setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
    }
    ~TestClient() { Close(); }
    TestClient(TestClient&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    TestClient& operator=(TestClient&&) = delete;

    int Fd() const { return m_fd; }
    bool IsConnected() const { return m_fd >= 0; }
    void Close() {
        if (IsConnected()) {
            ::close(std::exchange(m_fd, -1));
        }
    }
    void ShutDownWriting() { ::shutdown(m_fd, SHUT_WR); }

    // False when the peer is gone.
    bool Sends(const std::string& bytes) {
        size_t done = 0;
        ssize_t sent = 0;
        for (; sent >= 0 && done < bytes.size(); done += static_cast<size_t>(std::max<ssize_t>(sent, 0))) {
            sent = ::send(m_fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        }
        return sent >= 0;
    }
    // As much as the socket takes without waiting.
    size_t SendsWithoutWaiting(const std::string& bytes) {
        const ssize_t sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return sent > 0 ? static_cast<size_t>(sent) : 0;
    }

    // Nothing at the end of the stream or after the deadline.
    std::optional<Reply> Receives() {
        std::optional<Reply> reply(std::in_place);
        const bool hasHead = Reads(&reply->header, sizeof reply->header) &&
                             Reads(&reply->pieces, sizeof reply->pieces) &&
                             Reads(&reply->firstLength, sizeof reply->firstLength);
        reply->payload.resize(hasHead ? reply->header.length - 8 : 0);
        return hasHead && Reads(reply->payload.data(), reply->payload.size()) ? reply : std::nullopt;
    }
    std::optional<Reply> Asks(uint8_t method, const std::string& payload = "", uint32_t sequence = 0) {
        return Sends(Frame(method, payload, sequence)) ? Receives() : std::nullopt;
    }
    // A reset counts: the peer closed with requests unread.
    bool MeetsEnd() {
        char byte = 0;
        const ssize_t got = ::recv(m_fd, &byte, 1, 0);
        return got == 0 || (got < 0 && errno == ECONNRESET);
    }

private:
    bool Reads(void* to, size_t length) {
        return length == 0 || ::recv(m_fd, to, length, MSG_WAITALL) == static_cast<ssize_t>(length);
    }

    int m_fd;
};

} // namespace Support

#endif
