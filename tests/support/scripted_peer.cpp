#include "scripted_peer.h"

#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Support {

int Listen(const std::string& path, int backlog) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const void* any = &address;
    unlink(path.c_str());
    if (fd < 0 || bind(fd, static_cast<const sockaddr*>(any), sizeof(address)) != 0 ||
        (backlog > 0 && listen(fd, backlog) != 0)) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return fd;
}

namespace {

std::string Counted(const std::string& text) {
    return Bytes(static_cast<uint32_t>(text.size())) + text;
}

} // namespace

std::string FrameBytes(const Reply& frame) {
    const std::string header(reinterpret_cast<const char*>(&frame.header), sizeof(frame.header));
    return header + Bytes(frame.pieces) + Bytes(frame.firstLength) + frame.payload;
}

std::string ReplyTo(const Reply& request, uint16_t status, const std::string& payload) {
    const auto length = static_cast<uint32_t>(payload.size());
    Reply reply{request.header, payload.empty() ? 0U : 1U, length, payload};
    reply.header.method |= 0x80;
    reply.header.status = status;
    reply.header.length = length + 8;
    return FrameBytes(reply);
}

std::string ValuesPayload(const std::vector<std::string>& values) {
    std::string payload = Bytes(static_cast<uint32_t>(values.size()));
    for (const std::string& value : values) {
        payload += Counted(value);
    }
    return payload;
}

std::string FragmentPayload(const std::string& fragment) {
    return std::string(200, '\0') + Counted(fragment + '\0');
}

ScriptedPeer::ScriptedPeer(const std::string& path, Script script) :
    m_script(std::move(script)), m_listener(Listen(path)), m_thread([this] { Serve(); }) {}

ScriptedPeer::ScriptedPeer(const std::string& path, const std::string& answer) :
    m_script([answer](const Reply&) { return answer; }), m_answersOnce(true), m_listener(Listen(path)),
    m_thread([this] { Serve(); }) {}

ScriptedPeer::~ScriptedPeer() {
    shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    close(m_listener);
}

std::vector<Reply> ScriptedPeer::Requests() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void ScriptedPeer::Serve() {
    for (int fd = 0; (fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        TestClient client(fd);
        bool goesOn = true;
        for (std::optional<Reply> request; goesOn && (request = client.Receives());) {
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_requests.push_back(*request);
            }
            const std::string reply = m_script(*request);
            goesOn = client.Sends(reply) && reply.size() >= sizeof(tern_header) && !m_answersOnce;
        }
    }
}

} // namespace Support
