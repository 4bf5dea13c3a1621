// The front end's expansion of placeholders in the paths that clients send.
#include <cstring>
#include <fcntl.h>

#include "acm_descriptor.h"
#include "app_cfg_log.h"
#include "app_cfg_mgmt_server.h"
#include "app_cfg_record.h"

namespace SystemServer {

namespace {

constexpr unsigned long GET_PEER_PID = 0x80040305;

constexpr uint8_t REPLY_FLAG = 0x80;
constexpr uint8_t APP_MGR_METHOD_GET = 2;
constexpr uint16_t APP_MGR_URI_ROOT_PATH = 2;
// The answer's content begins with a record of two words; the second is the length of the piece behind it.
constexpr uint32_t CONTENT_RECORD_SIZE = 8;
constexpr uint32_t CONTENT_RECORD_LENGTH_OFFSET = 4;

struct MessageRelease {
    void operator()(tern_message* msg) const { tern_message_put(msg); }
};
using Message = std::unique_ptr<tern_message, MessageRelease>;

void AddressRootPathRequest(tern_header& header) {
    header.kind = 0;
    header.method = static_cast<uint8_t>((header.method & REPLY_FLAG) | APP_MGR_METHOD_GET);
    header.uri = APP_MGR_URI_ROOT_PATH;
}

bool Exchange(tern_message* msg, int fd) {
    if (tern_message_sendfd(msg, fd) < 0) {
        ACM_LOG(ACM_ERROR, "tern message sendfd fail.");
        return false;
    }
    if (tern_message_recvfd(msg, fd) < 0) {
        ACM_LOG(ACM_ERROR, "tern message recvfd fail.");
        return false;
    }
    return true;
}

// A part of the answer's content, or null with a log line.
const char* AnswerPart(tern_message* msg, uint64_t offset, uint64_t len) {
    const bool fits = offset <= UINT32_MAX && len <= UINT32_MAX;
    const void* const part =
        fits ? tern_content_struct(msg, static_cast<uint32_t>(offset), static_cast<uint32_t>(len)) : nullptr;
    if (part == nullptr) {
        ACM_LOG(ACM_ERROR, "tern content struct fail.");
    }
    return static_cast<const char*>(part);
}

// Stores the answer's path; false, with path unchanged, when the lengths in the answer contradict each other.
bool ReadRootPath(tern_message* msg, std::string& path) {
    const char* const record = AnswerPart(msg, 0, CONTENT_RECORD_SIZE);
    if (record == nullptr) {
        return false;
    }
    uint32_t first = 0;
    std::memcpy(&first, record + CONTENT_RECORD_LENGTH_OFFSET, sizeof first);
    const uint64_t pathOffset = uint64_t{first} + CONTENT_RECORD_SIZE;
    if (AnswerPart(msg, 0, pathOffset) == nullptr) {
        return false;
    }
    const uint64_t sectionLen = msg->header->length;
    if (sectionLen <= pathOffset) {
        ACM_LOG(ACM_ERROR, "tern content length invalid.");
        return false;
    }
    const char* const text = AnswerPart(msg, pathOffset, sectionLen - pathOffset);
    if (text == nullptr) {
        return false;
    }
    path = BoundedText(text, static_cast<size_t>(sectionLen - pathOffset));
    return true;
}

} // namespace

const std::string AppCfgMgmtServer::DEFAULT_SETTING_PATH = "/usr/setting/";
const std::string AppCfgMgmtServer::DEFAULT_BACKUP_PATH = "/usr/setting_bak/";
const std::string AppCfgMgmtServer::KESTREL_ROOT_DEFAULT = "/mnt/kestrel/";
const std::string AppCfgMgmtServer::APP_MGR_SERVICE = KESTREL_ROOT_DEFAULT + "appmgr.paas.orb";
const std::string AppCfgMgmtServer::CONTAINER_ROOT_PATH_KEY = "container_root_path";
const std::string AppCfgMgmtServer::DEFAULT_SETTING_PATH_KEY = "default_setting_path";
const std::string AppCfgMgmtServer::DEFAULT_BACKUP_PATH_KEY = "default_backup_path";

const std::map<std::string, AppCfgMgmtServer::PathVarFinder> AppCfgMgmtServer::m_pathVarFinder = {
    {CONTAINER_ROOT_PATH_KEY, GetContainerRootPath},
    {DEFAULT_SETTING_PATH_KEY, GetDefaultSettingPath},
    {DEFAULT_BACKUP_PATH_KEY, GetDefaultBackupPath},
};

int AppCfgMgmtServer::GetConnectionInfo(kestrel_connection* conn, ConnectionInfo* info) {
    const int fault = kestrel_ioctl(conn->fd, GET_PEER_PID, &info->pid);
    if (fault != 0) {
        ACM_LOG(ACM_ERROR, "get conn pid fail.");
    }
    return fault;
}

std::string AppCfgMgmtServer::ExpandPath(const std::string& path, ConnectionInfo* info) {
    std::string result;
    size_t at = 0;
    for (;;) {
        const size_t begin = path.find("${", at);
        result.append(path, at, begin - at);
        if (begin == std::string::npos) {
            return result;
        }
        const size_t end = path.find('}', begin);
        if (end == std::string::npos) {
            return result.append(path, begin, std::string::npos);
        }
        const std::string name = path.substr(begin + 2, end - begin - 2);
        const auto finder = m_pathVarFinder.find(name);
        if (finder != m_pathVarFinder.end()) {
            result += finder->second(info);
        } else {
            result.append(path, begin, end + 1 - begin);
        }
        at = end + 1;
    }
}

std::string AppCfgMgmtServer::GetContainerRootPath(ConnectionInfo* info) {
    std::string path = "invalid_root_path";
    const AcmDescriptor service(kestrel_open(APP_MGR_SERVICE.c_str(), O_RDWR | O_CLOEXEC));
    if (service.Get() < 0) {
        ACM_LOG(ACM_ERROR, "open app mgr service fail.");
        return path;
    }
    const Message msg(tern_message_new(0));
    if (!msg || tern_content_add(msg.get(), &info->pid, sizeof info->pid, 0) != 0) {
        ACM_LOG(ACM_ERROR, "tern message new fail.");
        return path;
    }
    AddressRootPathRequest(*msg->header);
    ACM_LOG(ACM_INFO, "get pid[%d] root path...\n", info->pid);
    if (Exchange(msg.get(), service.Get()) && ReadRootPath(msg.get(), path)) {
        ACM_LOG(ACM_INFO, "get pid[%d] root path done.\n", info->pid);
        ACM_LOG(ACM_INFO, "path in host:%s", path.c_str());
    }
    return path;
}

std::string AppCfgMgmtServer::GetDefaultSettingPath(ConnectionInfo*) {
    return DEFAULT_SETTING_PATH;
}

std::string AppCfgMgmtServer::GetDefaultBackupPath(ConnectionInfo*) {
    return DEFAULT_BACKUP_PATH;
}

} // namespace SystemServer
