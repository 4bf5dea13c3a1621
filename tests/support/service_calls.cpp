#include "service_calls.h"

#include <linux/capability.h>
#include <pwd.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "securec/securec.h"
#include "tern/tern.h"

using FaultTest::Call;
using FaultTest::Fails;

namespace {

constexpr uid_t SSHD_UID = 105;
constexpr gid_t SSHD_GID = 65534;

std::atomic<kestrel_event_mgr*> g_eventMgr{nullptr};

// What the process seems to have. Start-up runs on one thread.
std::vector<std::string> g_calls;
__user_cap_data_struct g_capabilities[2] = {};

int Privileged(Call call, const std::string& line) {
    g_calls.push_back(line);
    return Fails(call) ? -1 : 0;
}

std::string Hex(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", number);
    return text;
}

} // namespace

namespace ServiceTest {

std::vector<std::string> TakePrivilegedCalls() {
    g_capabilities[0] = {0x11, 0x12, 0x13};
    g_capabilities[1] = {0x21, 0x22, 0x23};
    return std::exchange(g_calls, {});
}

kestrel_event_mgr* LastEventMgr() {
    return g_eventMgr;
}

} // namespace ServiceTest

extern "C" {

FORWARDED(int, kestrel_server_register, SERVER_REGISTER, -1,
          (const char* name, kestrel_event_mgr* mgr, const kestrel_server_ops* ops), (name, mgr, ops))
FORWARDED(int, kestrel_ioctl, IOCTL, -1, (int fd, unsigned long request, void* arg), (fd, request, arg))
FORWARDED(tern_message*, tern_message_new, MESSAGE_NEW, nullptr, (int reserved), (reserved))
FORWARDED(int, tern_message_sendfd, MESSAGE_SENDFD, -1, (tern_message * msg, int fd), (msg, fd))
FORWARDED(int, tern_content, CONTENT, 7, (tern_message * msg, void** content, uint32_t* len),
          (msg, content, len))
FORWARDED(int, tern_content_add, CONTENT_ADD, -1,
          (tern_message * msg, const void* data, uint32_t len, int reserved), (msg, data, len, reserved))
FORWARDED(void*, pcalloc, POOL, nullptr, (kestrel_pool * pool, size_t size), (pool, size))
FORWARDED(int, memcpy_s, COPY, 34, (void* dest, size_t destMax, const void* src, size_t count),
          (dest, destMax, src, count))

kestrel_event_mgr* __real_kestrel_event_mgr_new(int reserved);
kestrel_event_mgr* __wrap_kestrel_event_mgr_new(int reserved) {
    return g_eventMgr = Fails(Call::EVENT_MGR_NEW) ? nullptr : __real_kestrel_event_mgr_new(reserved);
}

int __real_getpwnam_r(const char* name, passwd* entry, char* buffer, size_t size, passwd** found);
int __wrap_getpwnam_r(const char* name, passwd* entry, char* buffer, size_t size, passwd** found) {
    if (std::strcmp(name, "sshd") != 0) {
        return __real_getpwnam_r(name, entry, buffer, size, found);
    }
    const int fault = Privileged(Call::GETPWNAM_R, "getpwnam_r " + std::to_string(size));
    entry->pw_uid = SSHD_UID;
    entry->pw_gid = SSHD_GID;
    *found = fault == 0 ? entry : nullptr;
    return fault == 0 ? 0 : ERANGE;
}

int __wrap_capget(cap_user_header_t header, cap_user_data_t data) {
    std::memcpy(data, g_capabilities, sizeof g_capabilities);
    return Privileged(Call::CAPGET, "capget " + Hex(header->version));
}

int __wrap_capset(cap_user_header_t header, const cap_user_data_t data) {
    std::memcpy(g_capabilities, data, sizeof g_capabilities);
    return Privileged(Call::CAPSET,
                      "capset " + Hex(header->version) + ", high permitted " + Hex(data[1].permitted));
}

#define PRIVILEGED(name, call, parameters, line)                                                             \
    int __wrap_##name parameters {                                                                           \
        return Privileged(Call::call, #name " " + (line));                                                   \
    }
PRIVILEGED(prctl, PRCTL, (int option, unsigned long argument, ...),
           std::to_string(option) + " " + std::to_string(argument))
PRIVILEGED(setgid, SETGID, (gid_t group), std::to_string(group))
PRIVILEGED(setuid, SETUID, (uid_t user), std::to_string(user))

// Poco::Path::tryParse, which takes any text for a path of the system's own style.
FORWARDED(bool, _ZN4Poco4Path8tryParseERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEENS0_5StyleE,
          PARSE_PATH, false, (void* path, const std::string& text, int style), (path, text, style))

} // extern "C"
