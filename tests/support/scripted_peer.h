// A peer at a service's socket that answers what a test tells it to, byte by byte.
#ifndef TESTS_SUPPORT_SCRIPTED_PEER_H
#define TESTS_SUPPORT_SCRIPTED_PEER_H

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "test_client.h"

namespace Support {

std::string FrameBytes(const Reply& frame);

// A reply to the request with this status and payload, as the service frames it.
std::string ReplyTo(const Reply& request, uint16_t status, const std::string& payload = {});

// The payloads of well-formed replies.
std::string ValuesPayload(const std::vector<std::string>& values);
std::string FragmentPayload(const std::string& fragment);

// A socket at the path, in place of any that is there, that nobody accepts from; throws when there can be
// none. With a backlog of 0 it does not listen, as one that a killed server left behind.
int Listen(const std::string& path, int backlog = 8);

// Listens at the path and serves one connection after another on a thread of its own. Its clients end before
// it does.
class ScriptedPeer {
public:
    // Yields the bytes to send for a request; fewer than a header's close the connection then.
    using Script = std::function<std::string(const Reply&)>;

    ScriptedPeer(const std::string& path, Script script);
    // Answers each connection once with these bytes, and closes it.
    ScriptedPeer(const std::string& path, const std::string& answer);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::vector<Reply> Requests() const;

private:
    void Serve();

    Script m_script;
    const bool m_answersOnce = false;
    int m_listener;
    mutable std::mutex m_mutex; // guards m_requests
    std::vector<Reply> m_requests;
    std::thread m_thread;
};

} // namespace Support

#endif
