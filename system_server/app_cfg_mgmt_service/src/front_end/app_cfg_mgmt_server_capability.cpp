// The process's change to the service's user and capabilities. It comes before any thread is started, so that
// all threads inherit them.
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "app_cfg_log.h"
#include "app_cfg_mgmt_server.h"

extern "C" {
// The C library exports both without a header of its own.
int capget(cap_user_header_t header, cap_user_data_t data);
int capset(cap_user_header_t header, cap_user_data_t data);
}

namespace SystemServer {

namespace {

// CHOWN, DAC_OVERRIDE, DAC_READ_SEARCH, FSETID, NET_BIND_SERVICE, NET_BROADCAST, NET_ADMIN, NET_RAW,
// IPC_OWNER, SYS_RAWIO, SYS_ADMIN, SYS_BOOT, SYS_RESOURCE, SYS_TIME, SYS_TTY_CONFIG, AUDIT_WRITE and
// AUDIT_CONTROL. Wider than the file work needs; kept, since the device's other services rely on the set.
constexpr uint32_t SERVICE_CAPABILITIES = 0x6762BC17;

constexpr size_t PASSWD_BUFFER_SIZE = 256;

// The process's capabilities 0 to 31 and 32 to 63.
struct Capabilities {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, getpid()};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};

    void Log() const {
        ACM_LOG(ACM_INFO, "Cap data 0x%x, 0x%x, 0x%x\n", data[0].effective, data[0].permitted,
                data[0].inheritable);
    }
};

bool Check(bool hasWorked, const char* call, const std::string& userName) {
    if (!hasWorked) {
        ACM_LOG(ACM_ERROR, "[%s]:%s fail.", userName.c_str(), call);
    }
    return hasWorked;
}

bool BecomeUser(const std::string& userName) {
    passwd entry = {};
    passwd* found = nullptr;
    char buffer[PASSWD_BUFFER_SIZE];
    const int fault = getpwnam_r(userName.c_str(), &entry, buffer, sizeof buffer, &found);
    // The group first: the user that the process becomes could no longer change it.
    if (!Check(fault == 0 && found != nullptr, "getpwnam_r", userName) ||
        !Check(setgid(found->pw_gid) == 0, "setgid", userName) ||
        !Check(setuid(found->pw_uid) == 0, "setuid", userName)) {
        return false;
    }
    ACM_LOG(ACM_INFO, "uid=%i  euid=%i  gid=%i\n", static_cast<int>(getuid()), static_cast<int>(geteuid()),
            static_cast<int>(getgid()));
    return true;
}

bool SetServiceCapabilities(Capabilities& capabilities, const std::string& userName) {
    capabilities.data[0] = {SERVICE_CAPABILITIES, SERVICE_CAPABILITIES, SERVICE_CAPABILITIES};
    if (!Check(capset(&capabilities.header, capabilities.data) == 0, "capset", userName) ||
        !Check(capget(&capabilities.header, capabilities.data) == 0, "capget", userName)) {
        return false;
    }
    capabilities.Log();
    return true;
}

} // namespace

int AppCfgMgmtServer::ChangeServerCapability(const std::string& userName) {
    if (userName.empty()) {
        ACM_LOG(ACM_ERROR, "userName is empty.");
        return -1;
    }
    Capabilities capabilities;
    int result = capget(&capabilities.header, capabilities.data);
    if (result != 0) {
        ACM_LOG(ACM_ERROR, "capget failed, ret = %d !\n", result);
        return -1;
    }
    capabilities.Log();
    result = prctl(PR_SET_KEEPCAPS, 1, 1, 1);
    if (result != 0) {
        ACM_LOG(ACM_ERROR, "System call prctl fail errno %d \n", result);
        return -1;
    }
    return BecomeUser(userName) && SetServiceCapabilities(capabilities, userName) ? 0 : -1;
}

} // namespace SystemServer
