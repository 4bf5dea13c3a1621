#include "app_manager.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "pl/pl_log.h"

namespace AppManager {

namespace {

constexpr char SERVICE_NAME[] = "appmgr.paas.orb";
constexpr int LOG_MODULE = 5;
constexpr char LOG_FILE[] = "platform/app_manager/app_manager";

constexpr std::uint8_t METHOD_GET = 2;
constexpr std::uint16_t URI_ROOT_PATH = 2;
constexpr std::uint8_t METHOD_MASK = 0x7F;
constexpr std::uint8_t REPLY_BIT = 0x80;

constexpr std::uint16_t STATUS_OK = 200;
constexpr std::uint16_t STATUS_BAD_REQUEST = 400;
constexpr std::uint16_t STATUS_NOT_FOUND = 404;
constexpr std::uint16_t STATUS_FAILED = 500;

// False unless the request is a get of a root path with exactly one pid.
bool ReadPid(tern_message* msg, std::int32_t* pid) {
    void* content = nullptr;
    std::uint32_t length = 0;
    if ((msg->header->method & METHOD_MASK) != METHOD_GET || msg->header->uri != URI_ROOT_PATH ||
        tern_content(msg, &content, &length) != 0 || length != sizeof *pid) {
        return false;
    }
    std::memcpy(pid, content, sizeof *pid);
    return true;
}

// The target of the process's root link into the path; 0 or errno.
int ReadRoot(std::int32_t pid, char* path, std::size_t room) {
    char link[32];
    std::snprintf(link, sizeof link, "/proc/%d/root", static_cast<int>(pid));
    const ssize_t length = ::readlink(link, path, room);
    if (length < 0) {
        return errno;
    }
    if (static_cast<std::size_t>(length) == room) {
        return ENAMETOOLONG;
    }
    path[length] = '\0';
    return 0;
}

} // namespace

const kestrel_server_ops AppManagerServer::m_serverOps = {&AppManagerServer::StartServer, nullptr};
const kestrel_protocol_ops AppManagerServer::m_protocolOps = {nullptr, &AppManagerServer::ProcessMsg};
const kestrel_connection_ops AppManagerServer::m_connectionOps = {nullptr, nullptr, nullptr};

int AppManagerServer::Run() {
    kestrel_event_mgr* mgr = kestrel_event_mgr_new(0);
    if (mgr == nullptr || kestrel_server_register(SERVICE_NAME, mgr, &m_serverOps) != 0) {
        PL_WriteLog(LOG_MODULE, 3, 0, 0, LOG_FILE, __LINE__, "%s cannot be registered", SERVICE_NAME);
        return 1;
    }
    PL_WriteLog(LOG_MODULE, 1, 0, 0, LOG_FILE, __LINE__, "application manager start running...");
    return kestrel_event_mgr_run(mgr, -1);
}

int AppManagerServer::StartServer(kestrel_server* server, void*) {
    server->protocol_ops = &m_protocolOps;
    server->connection_ops = &m_connectionOps;
    return 0;
}

void AppManagerServer::ProcessMsg(tern_message* msg, kestrel_connection* conn) {
    std::int32_t pid = 0;
    const bool understood = ReadPid(msg, &pid);
    tern_header_clear(msg);
    tern_content_clear(msg);
    const std::uint16_t status = understood ? AnswerRoot(msg, pid) : STATUS_BAD_REQUEST;
    msg->header->status = status;
    msg->header->method = static_cast<std::uint8_t>(msg->header->method | REPLY_BIT);
    tern_message_async_send(msg, conn, 0);
}

std::uint16_t AppManagerServer::AnswerRoot(tern_message* msg, std::int32_t pid) {
    auto* result = static_cast<std::int32_t*>(pcalloc(msg->pool, sizeof(std::int32_t)));
    auto* path = static_cast<char*>(pcalloc(msg->pool, PATH_MAX));
    if (result == nullptr || path == nullptr) {
        return STATUS_FAILED;
    }
    *result = ReadRoot(pid, path, PATH_MAX);
    tern_content_add(msg, result, sizeof *result, 0);
    if (*result != 0) {
        PL_WriteLog(LOG_MODULE, 3, 0, 0, LOG_FILE, __LINE__, "pid[%d] root path: %s", static_cast<int>(pid),
                    std::strerror(*result));
        return STATUS_NOT_FOUND;
    }
    tern_content_add(msg, path, static_cast<std::uint32_t>(std::strlen(path) + 1), 0);
    return STATUS_OK;
}

} // namespace AppManager

extern "C" int CreateAppMgrService(void) {
    return AppManager::AppManagerServer::Run();
}
