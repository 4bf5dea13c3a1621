#include "service_fixture.h"

#include <algorithm>
#include <regex>

#include "pl/pl_log_control.h"

namespace ServiceTest {

namespace {

constexpr char SOURCES[] = "system_server/app_cfg_mgmt_service/src/";
constexpr int SERVICE_MODULE = 4;

kestrel_event_mgr* NewService() {
    kestrel_event_mgr* const loop = kestrel_event_mgr_new(0);
    if (kestrel_server_register(APP_CFG_SERVICE_NAME, loop, &AppCfgMgmtServer::m_serverOps) != 0) {
        throw std::runtime_error("the service cannot be registered");
    }
    return loop;
}

uint32_t WordAt(const std::string& bytes, size_t at) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

std::string StatusText(const Reply& reply) {
    return "status " + std::to_string(reply.header.status);
}

} // namespace

LogLines::LogLines(const std::string& directory) : m_directory(directory) {
    pl_log_set_level(0);
    pl_log_set_sink(Take, this);
}

LogLines::~LogLines() {
    pl_log_set_sink(nullptr, nullptr);
    pl_log_set_level(1);
}

void LogLines::Take(void* self, int module, int level, const char* file, int, const char* text) {
    auto* const log = static_cast<LogLines*>(self);
    const std::string source = file;
    const bool isService = source.rfind(SOURCES, 0) == 0 && source.find('.') == std::string::npos;
    const std::lock_guard<std::mutex> lock(log->m_mutex);
    if (module == SERVICE_MODULE) {
        log->m_lines.push_back(std::to_string(level) + " " + text);
    }
    if (isService != (module == SERVICE_MODULE)) {
        log->m_strays.push_back(source);
    }
}

Lines LogLines::Of(const Lines& parts, int lowestLevel) {
    Lines found;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (std::string line : m_lines) {
        for (size_t at = 0; (at = line.find(m_directory, at)) != std::string::npos;) {
            line.erase(at, m_directory.size());
        }
        static const std::regex descriptor("fd\\[[0-9]+\\]");
        line = std::regex_replace(line, descriptor, "fd[N]");
        const bool asked = std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
            return line.find(part) != std::string::npos;
        });
        if (line[0] - '0' >= lowestLevel && (parts.empty() || asked)) {
            found.push_back(line);
        }
    }
    return found;
}

Lines LogLines::Errors() {
    return Of({}, 3);
}

Lines LogLines::Strays() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_strays;
}

void LogLines::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

AppCfgHndl Handle(const std::string& owner, const std::string& name, uint32_t index) {
    AppCfgHndl handle{};
    Put(handle.ownerName, owner);
    Put(handle.cfgName, name);
    handle.cfgIndex = index;
    return handle;
}

std::string Frame(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence) {
    std::string frame = PlatformTest::Frame(method, payload, sequence);
    std::memcpy(&frame[offsetof(tern_header, uri)], &uri, sizeof uri);
    return frame;
}

Reply Client::Asks(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence) {
    if (!Sends(Frame(uri, method, payload, sequence))) {
        return Reply{};
    }
    return Receives().value_or(Reply{});
}

uint16_t Client::Creates(const AppCfgCreateReq& item) {
    return Asks(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE, BytesOf(item)).header.status;
}

uint16_t Client::Deletes() {
    return Asks(APP_CFG_URI_ITEM, APP_CFG_METHOD_DELETE, BytesOf(m_handle)).header.status;
}

uint16_t Client::Restores() {
    return Asks(APP_CFG_URI_DEFAULT, APP_CFG_METHOD_SET, BytesOf(m_handle)).header.status;
}

uint16_t Client::Sets(const std::string& query) {
    AppCfgDataReq request{m_handle, {}};
    Put(request.query, query);
    return Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_SET, BytesOf(request)).header.status;
}

Reply Client::Gets(const std::string& query) {
    AppCfgDataReq request{m_handle, {}};
    Put(request.query, query);
    return Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_GET, BytesOf(request));
}

Reply Client::GetsRaw(const std::string& key) {
    AppCfgRawDataReq request{m_handle, {}, 0};
    Put(request.query, key);
    return Asks(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_GET, BytesOf(request));
}

uint16_t Client::SetsRawBytes(const std::string& key, uint32_t dataLen, const std::string& data) {
    AppCfgRawDataReq request{m_handle, {}, dataLen};
    Put(request.query, key);
    return Asks(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_SET, BytesOf(request) + data).header.status;
}

uint16_t Client::SetsRaw(const std::string& key, const std::string& text) {
    return SetsRawBytes(key, static_cast<uint32_t>(text.size()) + 1, text + '\0');
}

std::string Client::Value(const std::string& query) {
    const Reply reply = Gets(query);
    if (reply.header.status != APP_CFG_STATUS_OK) {
        return StatusText(reply);
    }
    std::string values;
    size_t at = sizeof(uint32_t);
    for (uint32_t left = WordAt(reply.payload, 0); left > 0; --left) {
        const uint32_t length = WordAt(reply.payload, at);
        values += (at > sizeof(uint32_t) ? ";" : "") + reply.payload.substr(at + sizeof length, length);
        at += sizeof length + length;
    }
    return at == reply.payload.size() ? values : "(lengths do not add up)";
}

std::string Client::Raw(const std::string& key) {
    const Reply reply = GetsRaw(key);
    return reply.header.status == APP_CFG_STATUS_OK ? reply.payload.c_str() + sizeof(AppCfgRawDataReq)
                                                    : StatusText(reply);
}

AService::AService() : m_loop(NewService()), m_thread([this] { kestrel_event_mgr_run(m_loop, -1); }) {}

AService::~AService() {
    Stops();
    kestrel_event_mgr_free(m_loop);
    EXPECT_THAT(RegisteredKeys(), IsEmpty());
    EXPECT_THAT(m_log.Strays(), IsEmpty());
}

void AService::Stops() {
    kestrel_event_mgr_stop(m_loop);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

AppCfgCreateReq AService::Item(const std::string& cfg, const std::string& backup,
                               const std::string& defaults) const {
    AppCfgCreateReq item{};
    item.hndl = m_client.m_handle;
    item.storageType = ConfigStorageType::JSON;
    item.saveStrategy = ConfigSaveStrategy::INSTANT;
    item.backupStrategy = ConfigBackupStrategy::INSTANT;
    Put(item.cfgPath, cfg.empty() ? cfg : Path(cfg));
    Put(item.backupPath, backup.empty() ? backup : Path(backup));
    Put(item.defaultPath, defaults.empty() ? defaults : Path(defaults));
    return item;
}

void AService::HasItem(const std::string& text) {
    Writes("cfg", text);
    ASSERT_EQ(m_client.Creates(Item()), 200);
    m_log.Clear();
}

Lines AService::RegisteredKeys() {
    const std::lock_guard<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex);
    Lines keys;
    for (const auto& entry : AppCfgMgmtServer::m_appCfgMgmtItemMap) {
        keys.push_back(entry.first);
    }
    return keys;
}

} // namespace ServiceTest
