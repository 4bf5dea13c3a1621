#ifndef TESTS_SUPPORT_TEST_CLIENT_H
#define TESTS_SUPPORT_TEST_CLIENT_H

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "tern/tern.h"

namespace Support {

// A frame as bytes.
std::string Frame(std::uint8_t method, const std::string& payload = "", std::uint32_t sequence = 0,
                  std::uint16_t uri = 1);

// The bytes of a number as it stands in memory.
std::string Bytes(std::uint32_t number);

struct Reply {
    tern_header header;
    std::uint32_t pieces;
    std::uint32_t firstLength;
    std::string payload;
};

// One end of a connection that speaks in bytes, so that it can misbehave. Every wait ends after a deadline.
class TestClient {
public:
    explicit TestClient(const std::string& service = "test.orb");
    // Takes a connected socket over.
    explicit TestClient(int fd);
    ~TestClient() { Close(); }
    TestClient(TestClient&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    TestClient& operator=(TestClient&&) = delete;

    int Fd() const { return m_fd; }
    bool IsConnected() const { return m_fd >= 0; }
    void Close();
    void ShutDownWriting();

    // False when the peer is gone.
    bool Sends(const std::string& bytes);
    // As much as the socket takes without waiting.
    std::size_t SendsWithoutWaiting(const std::string& bytes);

    // Nothing at the end of the stream or after the deadline.
    std::optional<Reply> Receives();
    std::optional<Reply> Asks(std::uint8_t method, const std::string& payload = "",
                              std::uint32_t sequence = 0);
    bool MeetsEnd();

private:
    bool ReadExactly(void* to, std::size_t length);

    int m_fd;
};

} // namespace Support

#endif
