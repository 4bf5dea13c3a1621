// A peer at the service's socket that answers what a test tells it to, byte by byte.
#ifndef TESTS_CLIENT_FAKE_SERVICE_H
#define TESTS_CLIENT_FAKE_SERVICE_H

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/root_directory.h"
#include "platform/test_client.h"

namespace appcfg::test {

using PlatformTest::RootDirectory;
using PlatformTest::TestClient;
using WholeFrame = PlatformTest::Reply;

std::string BytesOf(const WholeFrame& frame);

// A reply to the request with this status and payload, as the service frames it.
std::string ReplyTo(const WholeFrame& request, uint16_t status, const std::string& payload = {});

// The payloads of well-formed replies.
std::string ValuesPayload(const std::vector<std::string>& values);
std::string FragmentPayload(const std::string& fragment);

// Listens at <root>/storage.paas.orb and serves one connection after another on a thread of its own. Its
// clients end before it does.
class FakeService {
public:
    // Yields the bytes to send for a request; fewer than a header's close the connection then.
    using Script = std::function<std::string(const WholeFrame&)>;

    FakeService(const RootDirectory& root, Script script);
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    std::vector<WholeFrame> Requests() const;

private:
    void Serve();

    Script m_script;
    int m_listener;
    mutable std::mutex m_mutex; // guards m_requests
    std::vector<WholeFrame> m_requests;
    std::thread m_thread;
};

} // namespace appcfg::test

#endif
