// What the transport could do at best: a server that reads the service's frames and answers each at once, on
// raw epoll or on libevent's buffered layer. It answers with the request's header and as many bytes as it is
// told. On raw epoll it can be busy for a while before each answer, as a service is that needs no more than
// its library's time: a thread that drives many connections then sleeps between answers, and waking it is
// part of what the service has to pay.
//   speed_echo raw|libevent SOCKET REPLY_BYTES [BUSY_US]
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr size_t HEADER = 16;
constexpr size_t ROOM = 1 << 16;

size_t FrameBytes(const char* header) {
    uint32_t rest = 0;
    std::memcpy(&rest, header + 12, sizeof rest);
    return HEADER + rest;
}

std::string ReplyOf(const char* request, size_t bytes) {
    std::string reply(bytes, '\0');
    std::memcpy(reply.data(), request, HEADER);
    const auto rest = static_cast<uint32_t>(bytes - HEADER);
    std::memcpy(reply.data() + 12, &rest, sizeof rest);
    return reply;
}

int Listen(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd, 128) != 0) {
        std::abort();
    }
    return fd;
}

struct Peer {
    int fd;
    size_t filled = 0;
    std::array<char, ROOM> data;
};

void BeBusy(Microseconds time) {
    for (const auto start = Clock::now(); Clock::now() - start < time;) {
    }
}

// False when the peer has gone.
bool Answer(Peer& peer, size_t replyBytes, Microseconds busy) {
    const ssize_t got = recv(peer.fd, peer.data.data() + peer.filled, ROOM - peer.filled, 0);
    if (got <= 0) {
        return false;
    }
    peer.filled += static_cast<size_t>(got);
    size_t at = 0;
    while (peer.filled - at >= HEADER && peer.filled - at >= FrameBytes(peer.data.data() + at)) {
        if (busy.count() > 0) {
            BeBusy(busy);
        }
        const std::string reply = ReplyOf(peer.data.data() + at, replyBytes);
        if (send(peer.fd, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) {
            return false;
        }
        at += FrameBytes(peer.data.data() + at);
    }
    std::memmove(peer.data.data(), peer.data.data() + at, peer.filled - at);
    peer.filled -= at;
    return true;
}

void RunRaw(int listener, size_t replyBytes, Microseconds busy) {
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event wanted{EPOLLIN, {nullptr}};
    epoll_ctl(poll, EPOLL_CTL_ADD, listener, &wanted);
    std::array<epoll_event, 64> events;
    for (;;) {
        const int ready = epoll_wait(poll, events.data(), static_cast<int>(events.size()), -1);
        for (int at = 0; at < ready; ++at) {
            auto* const peer = static_cast<Peer*>(events[static_cast<size_t>(at)].data.ptr);
            if (peer == nullptr) {
                auto* const made = new Peer{accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), 0, {}};
                epoll_event each{EPOLLIN, {made}};
                epoll_ctl(poll, EPOLL_CTL_ADD, made->fd, &each);
            } else if (!Answer(*peer, replyBytes, busy)) {
                close(peer->fd);
                delete peer;
            }
        }
    }
}

void OnReadable(bufferevent* peer, void* replyBytes) {
    evbuffer* const input = bufferevent_get_input(peer);
    std::array<char, HEADER> header;
    while (evbuffer_copyout(input, header.data(), HEADER) == static_cast<ssize_t>(HEADER) &&
           evbuffer_get_length(input) >= FrameBytes(header.data())) {
        evbuffer_drain(input, FrameBytes(header.data()));
        const std::string reply = ReplyOf(header.data(), *static_cast<size_t*>(replyBytes));
        bufferevent_write(peer, reply.data(), reply.size());
    }
}

void OnEvent(bufferevent* peer, short, void*) {
    bufferevent_free(peer);
}

struct Loop {
    event_base* base;
    int listener;
    size_t replyBytes;
};

void OnConnection(evutil_socket_t, short, void* context) {
    Loop& loop = *static_cast<Loop*>(context);
    const int fd = accept4(loop.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    bufferevent* const peer = bufferevent_socket_new(loop.base, fd, BEV_OPT_CLOSE_ON_FREE);
    bufferevent_setcb(peer, OnReadable, nullptr, OnEvent, &loop.replyBytes);
    bufferevent_enable(peer, EV_READ | EV_WRITE);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    Loop loop{nullptr, Listen(argv[2]), std::strtoul(argv[3], nullptr, 10)};
    if (std::string(argv[1]) == "raw") {
        RunRaw(loop.listener, loop.replyBytes, Microseconds(argc > 4 ? std::strtod(argv[4], nullptr) : 0));
    }
    loop.base = event_base_new();
    event* const accepting = event_new(loop.base, loop.listener, EV_READ | EV_PERSIST, OnConnection, &loop);
    event_add(accepting, nullptr);
    return event_base_dispatch(loop.base);
}
