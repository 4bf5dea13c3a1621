// The application manager's answer: a client's root is a text that stands in it, or none is found.
// Input: the bytes that the manager sends.
#include <sys/socket.h>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_mgmt_server.h"
#include "fuzz_support.h"

namespace {

int g_manager = -1; // the service's end of the connection

} // namespace

// In place of the framework's: the application manager has answered already.
extern "C" int kestrel_open(const char*, int) {
    return g_manager;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string answer = Fuzz::Parts(data, size, 1)[0].substr(0, 64U << 10);
    int ends[2];
    Fuzz::Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    const SystemServer::AcmDescriptor manager(ends[0]);
    g_manager = ends[1];
    Fuzz::Check(write(manager.Get(), answer.data(), answer.size()) == static_cast<ssize_t>(answer.size()) &&
                    shutdown(manager.Get(), SHUT_WR) == 0,
                "the answer is sent");
    SystemServer::AppCfgMgmtServer::ConnectionInfo client;
    const std::string path = SystemServer::AppCfgMgmtServer::GetContainerRootPath(&client);
    Fuzz::Check(path == "invalid_root_path" || answer.find(path) != std::string::npos, "it was answered");
    Fuzz::Check(path.find('\0') == std::string::npos, "a path ends at its NUL");
    return 0;
}
