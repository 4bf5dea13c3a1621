// A closed loop of clients: each connection sends the same request again as soon as its reply is whole. One
// connection waits for its replies; many are driven by one thread on epoll.
//   speed_load SOCKET REQUEST_FILE CONNECTIONS SECONDS [REPLY_BYTES]
// Prints requests per second, and percentiles of the latency in us: 50, 90, 99, 99.9. Replies are frames,
// unless their length is given.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t HEADER = 16;

struct Load {
    std::string request;
    size_t replyBytes; // 0: as its header says
    Clock::time_point end;
    std::vector<float> latencies; // us
    std::vector<char> room = std::vector<char>(1 << 18);
};

struct Client {
    int fd;
    size_t got = 0;
    size_t whole = 0; // bytes of the reply, once they are known
    Clock::time_point sent;
};

int Connect(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int bytes = 1 << 18; // a request and a reply fit, whoever runs first
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror(path);
        std::exit(1);
    }
    return fd;
}

void Send(Load& load, Client& client) {
    client.got = 0;
    client.whole = load.replyBytes;
    client.sent = Clock::now();
    for (size_t at = 0; at < load.request.size();) {
        const ssize_t sent =
            send(client.fd, load.request.data() + at, load.request.size() - at, MSG_NOSIGNAL);
        if (sent <= 0) {
            std::perror("send");
            std::exit(1);
        }
        at += static_cast<size_t>(sent);
    }
}

// Reads what is there; sends the next request when the reply is whole.
void Receive(Load& load, Client& client) {
    const ssize_t got = recv(client.fd, load.room.data(), load.room.size(), 0);
    if (got <= 0) {
        std::fprintf(stderr, "the connection is closed\n");
        std::exit(1);
    }
    if (client.whole == 0 && got >= static_cast<ssize_t>(HEADER)) {
        uint32_t rest = 0;
        std::memcpy(&rest, load.room.data() + 12, sizeof rest);
        client.whole = HEADER + rest;
    }
    client.got += static_cast<size_t>(got);
    if (client.whole != 0 && client.got >= client.whole) {
        const std::chrono::duration<float, std::micro> latency = Clock::now() - client.sent;
        load.latencies.push_back(latency.count());
        Send(load, client);
    }
}

void Drive(Load& load, std::vector<Client>& clients) {
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    for (Client& client : clients) {
        epoll_event wanted{EPOLLIN, {&client}};
        epoll_ctl(poll, EPOLL_CTL_ADD, client.fd, &wanted);
        Send(load, client);
    }
    std::array<epoll_event, 64> events;
    while (Clock::now() < load.end) {
        const int ready = epoll_wait(poll, events.data(), static_cast<int>(events.size()), 1000);
        for (int at = 0; at < ready; ++at) {
            Receive(load, *static_cast<Client*>(events[static_cast<size_t>(at)].data.ptr));
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        return 2;
    }
    std::ifstream file(argv[2], std::ios::binary);
    const double seconds = std::strtod(argv[4], nullptr);
    Load load;
    load.request.assign(std::istreambuf_iterator<char>(file), {});
    load.replyBytes = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : 0;
    std::vector<Client> clients;
    for (unsigned long at = std::strtoul(argv[3], nullptr, 10); at > 0; --at) {
        clients.push_back({Connect(argv[1]), 0, 0, {}});
    }
    load.latencies.reserve(1 << 22);
    load.end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    if (clients.size() > 1) {
        Drive(load, clients);
    } else {
        Send(load, clients[0]);
        while (Clock::now() < load.end) {
            Receive(load, clients[0]);
        }
    }
    std::vector<float>& all = load.latencies;
    std::sort(all.begin(), all.end());
    const auto at = [&](double share) {
        return all[static_cast<size_t>(share * static_cast<double>(all.size() - 1))];
    };
    std::printf("%.1f %.2f %.2f %.2f %.2f\n", static_cast<double>(all.size()) / seconds, at(0.5), at(0.9),
                at(0.99), at(0.999));
}
