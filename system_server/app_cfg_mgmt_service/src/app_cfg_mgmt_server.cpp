#include "app_cfg_mgmt_server.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "app_cfg_fault.h"
#include "app_cfg_item_creation.h"
#include "app_cfg_key_change.h"
#include "app_cfg_log.h"
#include "app_cfg_record.h"
#include "app_cfg_reply.h"

namespace SystemServer {

namespace {

constexpr uint8_t REPLY_FLAG = 0x80;
constexpr uint8_t METHOD_MASK = 0x7F;

// Requests to the framework that set the buffer size of a server's connections. The argument is two zero
// words and the size.
constexpr unsigned long SET_SEND_BUFFER = 0x400C0200;
constexpr unsigned long SET_RECEIVE_BUFFER = 0x400C0201;
constexpr uint32_t CONNECTION_BUFFER_SIZE = 0x20000;

void StopForDelete(const AppCfgMgmtServer::AppCfgMgmtItem& item) {
    const auto stop = [](const char* name, const std::shared_ptr<AppCfgStrategy>& strategy) {
        if (strategy) {
            ACM_LOG(ACM_INFO, "stop %s strategy ...", name);
            strategy->Stop();
            ACM_LOG(ACM_INFO, "stop %s strategy done.", name);
        }
    };
    stop("save", item.saveStrategy);
    stop("backup", item.backupStrategy);
    item.CatchUp();
}

} // namespace

const std::string AppCfgMgmtServer::SERVICE_USERNAME = "sshd";

const kestrel_server_ops AppCfgMgmtServer::m_serverOps = {StartServer, nullptr};
const kestrel_connection_ops AppCfgMgmtServer::m_connectionOps = {nullptr, CloseConnection, nullptr};
const kestrel_protocol_ops AppCfgMgmtServer::m_protocolOps = {nullptr, ProcessMsg};

AcmMutex AppCfgMgmtServer::m_itemMapMutex;
AppCfgMgmtServer::ItemMap AppCfgMgmtServer::m_appCfgMgmtItemMap;

// A row for each URI. Its columns are the methods: none (never reached), create, get, set, delete.
// clang-format off
const decltype(AppCfgMgmtServer::m_msgHndl) AppCfgMgmtServer::m_msgHndl = {{
    {}, CreateAppCfgItem, {}, {}, DeleteAppCfgItem,
    {}, {}, GetAppCfgData, SetAppCfgData, {},
    {}, {}, GetAppCfgRawData, SetAppCfgRawData, {},
    {}, {}, {}, RestoreDefaultCfg, {},
    {}, {}, {}, UpdateCryptoParam, {},
}};
// clang-format on

int AppCfgMgmtServer::Run() {
    kestrel_event_mgr* const eventMgr = kestrel_event_mgr_new(0);
    if (eventMgr == nullptr) {
        ACM_LOG(ACM_ERROR, "kestrel_event_mgr_new fail.");
        return -1;
    }
    if (ChangeServerCapability(SERVICE_USERNAME) != 0) {
        ACM_LOG(ACM_ERROR, "Change AppCfg Capability fail.");
        return -1;
    }
    if (kestrel_server_register(APP_CFG_SERVICE_NAME, eventMgr, &m_serverOps) != 0) {
        ACM_LOG(ACM_ERROR, "kestrel_server_register fail.");
        return -1;
    }
    ACM_LOG(ACM_INFO, "App configuration manager start running...");
    const int result = kestrel_event_mgr_run(eventMgr, -1);
    RemoveAllItems();
    return result;
}

int AppCfgMgmtServer::StartServer(kestrel_server* server, void*) {
    server->protocol_ops = &m_protocolOps;
    server->connection_ops = &m_connectionOps;
    uint32_t buffer[] = {0, 0, CONNECTION_BUFFER_SIZE};
    kestrel_ioctl(server->fd, SET_SEND_BUFFER, buffer);
    kestrel_ioctl(server->fd, SET_RECEIVE_BUFFER, buffer);
    return 0;
}

void AppCfgMgmtServer::ProcessMsg(tern_message* msg, kestrel_connection* conn) {
    const unsigned method = msg->header->method & METHOD_MASK;
    const unsigned uri = msg->header->uri;
    ACM_LOG(ACM_TRACE, "receive uri: %d,method: %d", static_cast<int>(uri), static_cast<int>(method));
    const ReplyMsgInfo refusal = {APP_CFG_STATUS_BAD_REQUEST, nullptr, 0};
    if (uri >= APP_CFG_URI_COUNT) {
        ACM_LOG(ACM_ERROR, "invalid uri[%u] from connect fd[%d]", uri, conn->fd);
        ReplyMsg(msg, conn, &refusal);
        return;
    }
    if (method < APP_CFG_METHOD_CREATE || method > APP_CFG_METHOD_DELETE) {
        ACM_LOG(ACM_ERROR, "invalid method[%u] from connect fd[%d]", method, conn->fd);
        ReplyMsg(msg, conn, &refusal);
        return;
    }
    const MsgHndl& handler = m_msgHndl[uri * METHODS_PER_URI + method];
    if (!handler) {
        ACM_LOG(ACM_ERROR, "not support uri[%u].method[%u]", uri, method);
        ReplyMsg(msg, conn, &refusal);
        return;
    }
    Fence(LOG_FILE, __LINE__, [&] { handler(msg, conn); });
}

int AppCfgMgmtServer::FetchContent(tern_message* msg, kestrel_connection* conn, void** content,
                                   uint32_t requiredLen) {
    uint32_t len = 0;
    const int fault = tern_content(msg, content, &len);
    if (fault != 0) {
        ACM_LOG(ACM_ERROR, "[connect fd[%d] : call tern_content fail.return code[%d].", conn->fd, fault);
        return -1;
    }
    if (len < requiredLen) {
        ACM_LOG(ACM_ERROR, "[connect fd[%d] : invalid content len[%d],required content len[%d]", conn->fd,
                static_cast<int>(len), static_cast<int>(requiredLen));
        return -1;
    }
    return 0;
}

int AppCfgMgmtServer::ReplyMsg(tern_message* msg, kestrel_connection* conn, const ReplyMsgInfo* info) {
    tern_header_clear(msg);
    tern_content_clear(msg);
    uint16_t status = info->status;
    if (info->contentLen != 0 && tern_content_add(msg, info->content, info->contentLen, 0) != 0) {
        ACM_LOG(ACM_ERROR, "[connect fd[%d] : call tern_content_add fail.", conn->fd);
        status = APP_CFG_STATUS_INTERNAL_ERROR;
    }
    msg->header->status = status;
    msg->header->method |= REPLY_FLAG;
    return tern_message_async_send(msg, conn, 0);
}

std::string AppCfgMgmtServer::GetAppCfgKey(const AppCfgHndl* hndl) {
    return FieldText(hndl->ownerName) + "." + FieldText(hndl->cfgName) + "." + std::to_string(hndl->cfgIndex);
}

// What all handlers share: the registry's lock for the whole run, and one reply on every path. An exception
// of the body is logged and answered with the status that the reply held until then. The body stores the
// item's key as soon as it knows it, for that log line. Returns the status that was sent.
template <typename Body>
uint16_t AppCfgMgmtServer::Serve(tern_message* msg, kestrel_connection* conn, Body&& body) {
    ReplyMsgInfo reply = {APP_CFG_STATUS_BAD_REQUEST, nullptr, 0};
    std::string key;
    const AppCfgFaultContext context(conn->fd, key);
    const AcmLock lock(m_itemMapMutex);
    Fence(LOG_FILE, __LINE__, [&] { body(reply, key); });
    ReplyMsg(msg, conn, &reply);
    return reply.status;
}

// What the handlers of an existing item share: its record, its key and the item itself.
template <typename Record, typename Body>
uint16_t AppCfgMgmtServer::ServeItem(tern_message* msg, kestrel_connection* conn, uint32_t requiredLen,
                                     Body&& body, uint16_t shortStatus) {
    return Serve(msg, conn, [&](ReplyMsgInfo& reply, std::string& key) {
        m_itemMapMutex.AssertHeld();
        Record* record = nullptr;
        if (GetParamFromContent(msg, conn, &record, requiredLen) != 0) {
            reply.status = shortStatus;
            return;
        }
        key = GetAppCfgKey(&HandleOf(*record));
        const auto item = m_appCfgMgmtItemMap.find(key);
        if (item == m_appCfgMgmtItemMap.end()) {
            ACM_LOG(ACM_ERROR, "[connect fd[%d] : appCfgKey[%s] not found.", conn->fd, key.c_str());
            reply.status = APP_CFG_STATUS_NOT_FOUND;
            return;
        }
        body(*record, item, reply);
    });
}

void AppCfgMgmtServer::GetAppCfgData(tern_message* msg, kestrel_connection* conn) {
    ServeItem<AppCfgDataReq>(msg, conn, sizeof(AppCfgDataReq),
                             [&](const auto& record, auto item, auto& reply) {
                                 std::vector<std::string> values;
                                 if (item->second.appCfgMgr->GetData(FieldText(record.query), values) == 0) {
                                     BuildDataReply(msg, conn, values, reply);
                                 }
                             });
}

void AppCfgMgmtServer::SetAppCfgData(tern_message* msg, kestrel_connection* conn) {
    ServeItem<AppCfgDataReq>(msg, conn, sizeof(AppCfgDataReq),
                             [&](const auto& record, auto item, auto& reply) {
                                 if (item->second.appCfgMgr->SetData(FieldText(record.query)) != 0) {
                                     return;
                                 }
                                 ACM_LOG(ACM_TRACE, "------------cfg info------------");
                                 ACM_LOG(ACM_TRACE, "config hndl:%s, set data success.", item->first.c_str());
                                 ACM_LOG(ACM_TRACE, "--------------------------------");
                                 reply.status = APP_CFG_STATUS_OK;
                             });
}

void AppCfgMgmtServer::GetAppCfgRawData(tern_message* msg, kestrel_connection* conn) {
    const auto read = [&](AppCfgRawDataReq& record, auto item, ReplyMsgInfo& reply) {
        const std::string query = FieldText(record.query);
        std::string fragment;
        if (item->second.appCfgMgr->GetRawData(query, fragment) != 0) {
            ACM_LOG(ACM_ERROR, "[connect fd[%d] : XML Key[%s] not found.", conn->fd, query.c_str());
            reply.status = APP_CFG_STATUS_NOT_FOUND;
            return;
        }
        BuildRawReply(msg, record, query, fragment, reply);
    };
    // Unlike other short requests, this one is answered 404; clients rely on it.
    ServeItem<AppCfgRawDataReq>(msg, conn, sizeof(AppCfgRawDataReq), read, APP_CFG_STATUS_NOT_FOUND);
}

void AppCfgMgmtServer::SetAppCfgRawData(tern_message* msg, kestrel_connection* conn) {
    const auto write = [&](const AppCfgRawDataReq& record, auto item, ReplyMsgInfo& reply) {
        void* content = nullptr;
        uint32_t len = 0;
        tern_content(msg, &content, &len);
        const std::string data =
            BoundedText(static_cast<const char*>(content) + sizeof record, len - sizeof record);
        if (record.dataLen - 1 != static_cast<uint32_t>(data.size())) {
            ACM_LOG(ACM_ERROR, "string len %zd is not equal datalen %d ", static_cast<ssize_t>(data.size()),
                    static_cast<int>(record.dataLen));
            return;
        }
        if (item->second.appCfgMgr->SetRawData(FieldText(record.query), data) != 0) {
            return;
        }
        ACM_LOG(ACM_INFO, "------------cfg info------------");
        ACM_LOG(ACM_INFO, "config hndl:%s, set raw data success.", item->first.c_str());
        ACM_LOG(ACM_INFO, "--------------------------------");
        reply.status = APP_CFG_STATUS_OK;
    };
    ServeItem<AppCfgRawDataReq>(msg, conn, sizeof(AppCfgRawDataReq), write);
}

void AppCfgMgmtServer::CreateAppCfgItem(tern_message* msg, kestrel_connection* conn) {
    ACM_LOG(ACM_INFO, "create app cfg item start...");
    Serve(msg, conn, [&](ReplyMsgInfo& reply, std::string& key) {
        m_itemMapMutex.AssertHeld();
        AppCfgCreateReq* record = nullptr;
        if (GetParamFromContent(msg, conn, &record, sizeof(AppCfgCreateReq)) == 0) {
            key = GetAppCfgKey(&record->hndl);
            reply.status = AppCfgItemCreation(*record, *conn).Run();
        }
    });
}

void AppCfgMgmtServer::DeleteAppCfgItem(tern_message* msg, kestrel_connection* conn) {
    ServeItem<AppCfgHndl>(msg, conn, sizeof(AppCfgHndl), [](const auto&, auto item, auto& reply) {
        if (!Fence(LOG_FILE, __LINE__, [&] { StopForDelete(item->second); })) {
            item->second.GoOn();
            return;
        }
        ACM_LOG(ACM_INFO, "delete app cfg mgmt item... ");
        ACM_LOG(ACM_INFO, "------------cfg info------------");
        ACM_LOG(ACM_INFO, "config hndl:%s", item->first.c_str());
        ACM_LOG(ACM_INFO, "--------------------------------");
        m_itemMapMutex.AssertHeld();
        m_appCfgMgmtItemMap.erase(item);
        ACM_LOG(ACM_INFO, "delete app cfg mgmt item done. ");
        reply.status = APP_CFG_STATUS_OK;
    });
}

void AppCfgMgmtServer::RestoreDefaultCfg(tern_message* msg, kestrel_connection* conn) {
    ServeItem<AppCfgHndl>(msg, conn, sizeof(AppCfgHndl), [&](const auto&, auto found, auto& reply) {
        AppCfgMgmtItem& item = found->second;
        if (!item.appCfgMgr->IsConfigWritable()) {
            ACM_LOG(ACM_ERROR, "[connect fd[%d] : app cfg item[%s] is a read-only config file.", conn->fd,
                    found->first.c_str());
            return;
        }
        item.Stop();
        // A failed restore is logged, but answered 200; kept, since clients rely on it. The item goes on as
        // it is.
        Fence(LOG_FILE, __LINE__, [&] { item.appCfgMgr->Restore(); });
        item.Start();
        reply.status = APP_CFG_STATUS_OK;
    });
}

void AppCfgMgmtServer::UpdateCryptoParam(tern_message* msg, kestrel_connection* conn) {
    ACM_LOG(ACM_INFO, "update crypto param begin...");
    // The handle alone is enough. Fields that the content lacks are zero, which means plain files.
    const auto update = [&](const AppCfgHndl&, auto item, ReplyMsgInfo& reply) {
        void* content = nullptr;
        uint32_t len = 0;
        tern_content(msg, &content, &len);
        AppCfgCryptoUpdateReq request = {};
        std::memcpy(&request, content, std::min<size_t>(len, sizeof request));
        reply.status = ChangeEncryption(*item->second.appCfgMgr, request, conn->fd);
    };
    if (ServeItem<AppCfgHndl>(msg, conn, sizeof(AppCfgHndl), update) == APP_CFG_STATUS_OK) {
        ACM_LOG(ACM_INFO, "update crypto param end.");
    }
}

void AppCfgMgmtServer::CloseConnection(kestrel_connection* conn) {
    Fence(LOG_FILE, __LINE__, [&] {
        const AcmLock lock(m_itemMapMutex);
        RemoveItemsOf(conn->fd);
    });
}

void AppCfgMgmtServer::RemoveItemsOf(int32_t connFd) {
    for (auto next = m_appCfgMgmtItemMap.begin(); next != m_appCfgMgmtItemMap.end();) {
        const auto item = next++;
        if (item->second.connFd != connFd) {
            continue;
        }
        const AppCfgFaultContext context(connFd, item->first);
        item->second.End();
        ACM_LOG(ACM_INFO, "delete connect fd[%d] app cfg mgmt item[%s]... ", connFd, item->first.c_str());
        m_appCfgMgmtItemMap.erase(item);
        ACM_LOG(ACM_INFO, "delete app cfg mgmt item done. ");
    }
}

// The event loop closes every connection before it ends, which removes their items. This removes the items of
// connections whose close was never reported.
void AppCfgMgmtServer::RemoveAllItems() {
    const AcmLock lock(m_itemMapMutex);
    for (auto& [key, item] : m_appCfgMgmtItemMap) {
        item.End();
    }
    m_appCfgMgmtItemMap.clear();
}

} // namespace SystemServer

extern "C" __attribute__((visibility("default"))) int CreateAppCfgMgmtService() {
    SystemServer::Fence(LOG_FILE, __LINE__, [] { SystemServer::AppCfgMgmtServer::Run(); });
    return 0;
}
