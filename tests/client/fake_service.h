// A peer at the service's socket that answers what a test tells it to, byte by byte.
#ifndef TESTS_CLIENT_FAKE_SERVICE_H
#define TESTS_CLIENT_FAKE_SERVICE_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace appcfg::test {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(const std::string& text);
void AppendWord(Bytes& bytes, uint32_t word);
uint32_t WordAt(const Bytes& bytes, size_t offset);

// A reply to the request with this status and payload, as the service frames it.
Bytes ReplyTo(const Bytes& request, uint16_t status, const Bytes& payload = {});

// The payloads of well-formed replies.
Bytes ValuesPayload(const std::vector<std::string>& values);
Bytes FragmentPayload(const std::string& fragment);

// Listens at <root>/storage.paas.orb and serves one connection after another on a thread of its own.
class FakeService {
public:
    // Yields the bytes to send for a request frame; fewer than a header's close the connection then.
    using Script = std::function<Bytes(const Bytes&)>;

    FakeService(const std::string& root, Script script);
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    // The request frames so far, headers included.
    std::vector<Bytes> Requests() const;

private:
    void Serve();
    void ServeConnection(int fd);
    // False when the peer is gone or the test ends.
    bool ReadExactly(int fd, uint8_t* to, size_t count) const;
    bool WaitReadable(int fd) const;

    Script m_script;
    int m_listener;
    int m_wake;
    mutable std::mutex m_mutex; // guards m_requests
    std::vector<Bytes> m_requests;
    std::thread m_thread;
};

} // namespace appcfg::test

#endif
