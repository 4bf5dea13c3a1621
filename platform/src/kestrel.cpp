#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "event_mgr.h"
#include "paths.h"
#include "stop_signals.h"

namespace {

constexpr unsigned long PEER_PID = 0x80040305;
constexpr unsigned long SEND_BUFFER = 0x400C0200;
constexpr unsigned long RECEIVE_BUFFER = 0x400C0201;

// Guards the list of loops and the access of sockets to come. Taken alone.
std::mutex g_mutex;
kestrel_event_mgr* g_loops = nullptr;
Kestrel::SocketAccess g_access;

int NotASocket(int result) {
    if (result < 0 && (errno == ENOTSOCK || errno == ENOPROTOOPT)) {
        errno = ENOTTY;
    }
    return result;
}

int GetPeerPid(int fd, void* arg) {
    ucred peer{};
    socklen_t length = sizeof peer;
    const int result = NotASocket(::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length));
    if (result == 0) {
        const std::int32_t pid = peer.pid;
        std::memcpy(arg, &pid, sizeof pid);
    }
    return result;
}

// The listening socket keeps the size; each connection takes it over when it is accepted.
int SetBuffer(int fd, int option, const void* arg) {
    std::uint32_t words[3];
    std::memcpy(words, arg, sizeof words);
    if (words[2] == 0 || words[2] > INT_MAX / 2) {
        errno = EINVAL;
        return -1;
    }
    const int size = static_cast<int>(words[2]);
    return NotASocket(::setsockopt(fd, SOL_SOCKET, option, &size, sizeof size));
}

bool IsServiceName(const char* name) {
    return name != nullptr && *name != '\0' && std::strchr(name, '/') == nullptr;
}

} // namespace

extern "C" {

kestrel_event_mgr* kestrel_event_mgr_new(int) {
    kestrel_event_mgr* mgr = nullptr;
    Kestrel::Fenced("kestrel_event_mgr_new", [&mgr] {
        mgr = new kestrel_event_mgr;
        const std::lock_guard<std::mutex> lock(g_mutex);
        mgr->next = g_loops;
        g_loops = mgr;
    });
    return mgr;
}

int kestrel_event_mgr_run(kestrel_event_mgr* mgr, int timeout) {
    int result = -1;
    if (mgr != nullptr) {
        Kestrel::Fenced("kestrel_event_mgr_run", [&] { result = mgr->Run(timeout); });
    }
    return result;
}

void kestrel_event_mgr_stop(kestrel_event_mgr* mgr) {
    if (mgr != nullptr) {
        mgr->Stop();
    }
}

void kestrel_catch_stop_signals(void) {
    Kestrel::StopSignals::CatchUntilExit();
}

void kestrel_event_mgr_free(kestrel_event_mgr* mgr) {
    if (mgr == nullptr) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        kestrel_event_mgr** link = &g_loops;
        while (*link != mgr) {
            link = &(*link)->next;
        }
        *link = mgr->next;
    }
    Kestrel::Fenced("kestrel_event_mgr_free", [mgr] { delete mgr; });
}

void kestrel_socket_access(unsigned mode, unsigned group) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_access = {static_cast<mode_t>(mode & 0777), group};
}

int kestrel_server_register(const char* name, kestrel_event_mgr* mgr, const kestrel_server_ops* ops) {
    if (!IsServiceName(name) || mgr == nullptr || ops == nullptr || ops->start == nullptr) {
        return -1;
    }
    bool registered = false;
    Kestrel::Fenced("kestrel_server_register", [&] {
        std::unique_lock<std::mutex> lock(g_mutex);
        const Kestrel::SocketAccess access = g_access;
        lock.unlock();
        registered = mgr->Register(Kestrel::RootDirectory() + name, ops, access);
    });
    return registered ? 0 : -1;
}

int kestrel_open(const char* path, int flags) {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    int fd = -1;
    int error = ENOMEM;
    Kestrel::Fenced("kestrel_open", [&] {
        sockaddr_un address;
        if (!Kestrel::MakeAddress(Kestrel::ResolvePath(path), &address)) {
            error = *path == '\0' ? ENOENT : ENAMETOOLONG;
            return;
        }
        const int blocking = (flags & O_NONBLOCK) != 0 ? SOCK_NONBLOCK : 0;
        Kestrel::Descriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | blocking, 0));
        const bool connected = client.IsOpen() && Kestrel::ConnectTo(client.Get(), address) == 0;
        error = errno;
        fd = connected ? client.Release() : -1;
    });
    if (fd < 0) {
        errno = error;
    }
    return fd;
}

int kestrel_ioctl(int fd, unsigned long request, void* arg) {
    const bool known = request == PEER_PID || request == SEND_BUFFER || request == RECEIVE_BUFFER;
    if (!known || arg == nullptr) {
        errno = known ? EFAULT : ENOTTY;
        return -1;
    }
    if (request == PEER_PID) {
        return GetPeerPid(fd, arg);
    }
    return SetBuffer(fd, request == SEND_BUFFER ? SO_SNDBUF : SO_RCVBUF, arg);
}

} // extern "C"
