// A peer at a service's socket that answers what a test tells it to, byte by byte.
#ifndef TESTS_SUPPORT_SCRIPTED_PEER_H
#define TESTS_SUPPORT_SCRIPTED_PEER_H

#include <sys/un.h>

#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "test_client.h"

namespace Support {

// A reply to the request with this status and payload, as the service frames it.
inline std::string ReplyTo(const Reply& request, uint16_t status, const std::string& payload = {}) {
    const auto length = static_cast<uint32_t>(payload.size());
    Reply reply{request.header, payload.empty() ? 0U : 1U, length, payload};
    reply.header.method |= 0x80;
    reply.header.status = status;
    reply.header.length = length + 8;
    return FrameBytes(reply);
}

// The payloads of well-formed replies.
inline std::string ValuesPayload(const std::vector<std::string>& values) {
    std::string payload = Bytes(static_cast<uint32_t>(values.size()));
    for (const std::string& value : values) {
        payload += Bytes(static_cast<uint32_t>(value.size())) + value;
    }
    return payload;
}
inline std::string FragmentPayload(const std::string& fragment) {
    return std::string(200, '\0') + Bytes(static_cast<uint32_t>(fragment.size()) + 1) + fragment + '\0';
}

// A socket at the path, in place of any that is there, that nobody accepts from; throws when there can be
// none. With a backlog of 0 it does not listen, as one that a killed server left behind.
inline int Listen(const std::string& path, int backlog = 8) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const void* any = &address;
    ::unlink(path.c_str());
    if (fd < 0 || ::bind(fd, static_cast<const sockaddr*>(any), sizeof address) != 0 ||
        (backlog > 0 && ::listen(fd, backlog) != 0)) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return fd;
}

// Listens at the path and serves one connection after another on a thread of its own. Its clients end before
// it does.
class ScriptedPeer {
public:
    // Yields the bytes to send for a request; fewer than a header's close the connection then.
    using Script = std::function<std::string(const Reply&)>;

    ScriptedPeer(const std::string& path, Script script, bool answersOnce = false) :
        m_script(std::move(script)), m_answersOnce(answersOnce), m_listener(Listen(path)),
        m_thread([this] { Serve(); }) {}
    // Answers each connection once with these bytes, and closes it.
    ScriptedPeer(const std::string& path, const std::string& answer) :
        ScriptedPeer(
            path, [answer](const Reply&) { return answer; }, true) {}
    ~ScriptedPeer() {
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::vector<Reply> Requests() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

private:
    void Serve() {
        for (int fd = 0; (fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            TestClient client(fd);
            bool goesOn = true;
            for (std::optional<Reply> request; goesOn && (request = client.Receives());) {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_requests.push_back(*request);
                lock.unlock();
                const std::string reply = m_script(*request);
                goesOn = client.Sends(reply) && reply.size() >= sizeof(tern_header) && !m_answersOnce;
            }
        }
    }

    const Script m_script;
    const bool m_answersOnce;
    const int m_listener;
    mutable std::mutex m_mutex; // guards m_requests
    std::vector<Reply> m_requests;
    std::thread m_thread;
};

} // namespace Support

#endif
