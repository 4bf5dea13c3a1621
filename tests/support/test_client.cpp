#include "test_client.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

namespace Support {

std::string Bytes(std::uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string Frame(std::uint8_t method, const std::string& payload, std::uint32_t sequence,
                  std::uint16_t uri) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    const tern_header header{0x4E54, 0, method, uri, 0, sequence, length + 8};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + Bytes(1) + Bytes(length) +
           payload;
}

TestClient::TestClient(const std::string& service) :
    TestClient(kestrel_open(("/mnt/kestrel/" + service).c_str(), O_RDWR)) {}

TestClient::TestClient(int fd) : m_fd(fd) {
    const timeval deadline{60, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    ::setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
}

void TestClient::Close() {
    if (IsConnected()) {
        ::close(std::exchange(m_fd, -1));
    }
}

void TestClient::ShutDownWriting() {
    ::shutdown(m_fd, SHUT_WR);
}

bool TestClient::Sends(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(m_fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

std::size_t TestClient::SendsWithoutWaiting(const std::string& bytes) {
    const ssize_t sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent > 0 ? static_cast<std::size_t>(sent) : 0;
}

bool TestClient::ReadExactly(void* to, std::size_t length) {
    return length == 0 || ::recv(m_fd, to, length, MSG_WAITALL) == static_cast<ssize_t>(length);
}

std::optional<Reply> TestClient::Receives() {
    Reply reply{};
    if (!ReadExactly(&reply.header, sizeof reply.header) ||
        !ReadExactly(&reply.pieces, sizeof reply.pieces) ||
        !ReadExactly(&reply.firstLength, sizeof reply.firstLength)) {
        return std::nullopt;
    }
    reply.payload.resize(reply.header.length - 8);
    return ReadExactly(reply.payload.data(), reply.payload.size()) ? std::optional(std::move(reply))
                                                                   : std::nullopt;
}

std::optional<Reply> TestClient::Asks(std::uint8_t method, const std::string& payload,
                                      std::uint32_t sequence) {
    return Sends(Frame(method, payload, sequence)) ? Receives() : std::nullopt;
}

// A reset counts: the peer closed with requests unread.
bool TestClient::MeetsEnd() {
    char byte = 0;
    const ssize_t got = ::recv(m_fd, &byte, 1, 0);
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

} // namespace Support
