// Placeholders in paths: text without a known one stays as it is, and nothing is expanded twice.
// Input: path.
#include "app_cfg_mgmt_server.h"
#include "fuzz_support.h"

namespace {

std::string Expanded(const std::string& path) {
    SystemServer::AppCfgMgmtServer::ConnectionInfo client;
    return SystemServer::AppCfgMgmtServer::ExpandPath(path, &client);
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path =
        Fuzz::FieldText(Fuzz::Parts(data, size, 1)[0]).substr(0, SystemServer::APP_CFG_PATH_SIZE);
    const std::string expanded = Expanded(path);
    Fuzz::Check(HoldsPlaceholder(path) || expanded == path, "a path without placeholders stays as it is");
    Fuzz::Check(Expanded(expanded) == expanded, "no placeholder is left");
    Fuzz::Check(Expanded("/" + path) == "/" + expanded, "what precedes a path does not matter");
    Fuzz::Check(Expanded("${default_backup_path}" + path) == "/usr/setting_bak/" + expanded,
                "nor a placeholder");
    return 0;
}
