// Paths: what a client's text for one becomes, and what the application manager says of a client's root.
#include <sys/socket.h>
#include <unistd.h>

#include "acm_descriptor.h"
#include "app_cfg_mgmt_server.h"
#include "fuzz_support.h"

namespace Fuzz {

namespace {

using SystemServer::AppCfgMgmtServer;

int g_manager = -1; // the service's end of the connection

std::string Expanded(const std::string& path) {
    AppCfgMgmtServer::ConnectionInfo client;
    return AppCfgMgmtServer::ExpandPath(path, &client);
}

bool HoldsPlaceholder(const std::string& path) {
    for (const char* name : {"container_root_path", "default_setting_path", "default_backup_path"}) {
        if (path.find("${" + std::string(name) + "}") != std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace

// In place of the framework's: the application manager has answered already.
extern "C" int kestrel_open(const char*, int) {
    return g_manager;
}

// The application manager's answer: a client's root is a text that stands in it, or none is found.
// Input: the bytes that the manager sends.
void AppManagerAnswer(const std::string& input) {
    const std::string answer = Parts(input, 1)[0].substr(0, 64U << 10);
    int ends[2];
    Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    const SystemServer::AcmDescriptor manager(ends[0]);
    g_manager = ends[1];
    Check(write(manager.Get(), answer.data(), answer.size()) == static_cast<ssize_t>(answer.size()) &&
              shutdown(manager.Get(), SHUT_WR) == 0,
          "the answer is sent");
    AppCfgMgmtServer::ConnectionInfo client;
    const std::string path = AppCfgMgmtServer::GetContainerRootPath(&client);
    Check(path == "invalid_root_path" || answer.find(path) != std::string::npos, "it was answered");
    Check(path.find('\0') == std::string::npos, "a path ends at its NUL");
}

// Placeholders in paths: text without a known one stays as it is, and nothing is expanded twice.
// Input: path.
void PathExpansion(const std::string& input) {
    const std::string path = FieldText(Parts(input, 1)[0]).substr(0, SystemServer::APP_CFG_PATH_SIZE);
    const std::string expanded = Expanded(path);
    Check(HoldsPlaceholder(path) || expanded == path, "a path without placeholders stays as it is");
    Check(Expanded(expanded) == expanded, "no placeholder is left");
    Check(Expanded("/" + path) == "/" + expanded, "what precedes a path does not matter");
    Check(Expanded("${default_backup_path}" + path) == "/usr/setting_bak/" + expanded, "nor a placeholder");
}

} // namespace Fuzz
