#include "fake_service.h"

#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace appcfg::test {
namespace {

constexpr size_t HEADER = 16;

int Listen(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const void* any = &address;
    if (fd < 0 || bind(fd, static_cast<const sockaddr*>(any), sizeof(address)) != 0 || listen(fd, 8) != 0) {
        throw std::runtime_error("cannot listen at " + path);
    }
    return fd;
}

} // namespace

Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

void AppendWord(Bytes& bytes, uint32_t word) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(word >> shift));
    }
}

uint32_t WordAt(const Bytes& bytes, size_t offset) {
    uint32_t word = 0;
    std::memcpy(&word, &bytes.at(offset + 3) - 3, sizeof(word));
    return word;
}

Bytes ReplyTo(const Bytes& request, uint16_t status, const Bytes& payload) {
    Bytes reply(request.begin(), request.begin() + 12);
    reply[3] |= 0x80;
    reply[6] = static_cast<uint8_t>(status);
    reply[7] = static_cast<uint8_t>(status >> 8);
    AppendWord(reply, static_cast<uint32_t>(payload.size() + 8));
    AppendWord(reply, payload.empty() ? 0 : 1);
    AppendWord(reply, static_cast<uint32_t>(payload.size()));
    reply.insert(reply.end(), payload.begin(), payload.end());
    return reply;
}

Bytes ValuesPayload(const std::vector<std::string>& values) {
    Bytes payload;
    AppendWord(payload, static_cast<uint32_t>(values.size()));
    for (const std::string& value : values) {
        AppendWord(payload, static_cast<uint32_t>(value.size()));
        payload.insert(payload.end(), value.begin(), value.end());
    }
    return payload;
}

Bytes FragmentPayload(const std::string& fragment) {
    Bytes payload(200);
    AppendWord(payload, static_cast<uint32_t>(fragment.size() + 1));
    payload.insert(payload.end(), fragment.begin(), fragment.end());
    payload.push_back(0);
    return payload;
}

FakeService::FakeService(const std::string& root, Script script) :
    m_script(std::move(script)), m_listener(Listen(root + "/storage.paas.orb")),
    m_wake(eventfd(0, EFD_CLOEXEC)), m_thread([this] { Serve(); }) {}

FakeService::~FakeService() {
    const uint64_t one = 1;
    if (write(m_wake, &one, sizeof(one)) != sizeof(one)) {
        std::terminate();
    }
    m_thread.join();
    close(m_listener);
    close(m_wake);
}

std::vector<Bytes> FakeService::Requests() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

bool FakeService::WaitReadable(int fd) const {
    pollfd polled[2] = {{m_wake, POLLIN, 0}, {fd, POLLIN, 0}};
    poll(polled, 2, -1);
    return polled[0].revents == 0;
}

void FakeService::Serve() {
    while (WaitReadable(m_listener)) {
        const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            ServeConnection(fd);
            close(fd);
        }
    }
}

bool FakeService::ReadExactly(int fd, uint8_t* to, size_t count) const {
    while (count > 0) {
        if (!WaitReadable(fd)) {
            return false;
        }
        const ssize_t got = recv(fd, to, count, 0);
        if (got <= 0) {
            return false;
        }
        to += got;
        count -= static_cast<size_t>(got);
    }
    return true;
}

void FakeService::ServeConnection(int fd) {
    Bytes frame(HEADER);
    while (ReadExactly(fd, frame.data(), HEADER)) {
        const uint32_t length = WordAt(frame, 12);
        frame.resize(HEADER + length);
        if (!ReadExactly(fd, frame.data() + HEADER, length)) {
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_requests.push_back(frame);
        }
        const Bytes reply = m_script(frame);
        const auto sent = send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
        if (sent != static_cast<ssize_t>(reply.size()) || reply.size() < HEADER) {
            return;
        }
        frame.resize(HEADER);
    }
}

} // namespace appcfg::test
