#ifndef TESTS_SUPPORT_SERVICE_CLIENT_H
#define TESTS_SUPPORT_SERVICE_CLIENT_H

#include "test_client.h"

namespace Support {

// A client in bytes, with the service's requests as verbs. A connection that is lost answers status 0.
class Client : public TestClient {
public:
    Client() : TestClient(SystemServer::APP_CFG_SERVICE_NAME) {}

    Reply Asks(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence = 0) {
        return Sends(Frame(method, payload, sequence, uri)) ? Receives().value_or(Reply{}) : Reply{};
    }
    uint16_t Creates(const SystemServer::AppCfgCreateReq& item) {
        return Status(SystemServer::APP_CFG_URI_ITEM, SystemServer::APP_CFG_METHOD_CREATE, BytesOf(item));
    }
    uint16_t Deletes() {
        return Status(SystemServer::APP_CFG_URI_ITEM, SystemServer::APP_CFG_METHOD_DELETE, BytesOf(m_handle));
    }
    uint16_t Restores() { return SetsAt(SystemServer::APP_CFG_URI_DEFAULT, BytesOf(m_handle)); }
    // An empty key of encryption means plain files.
    uint16_t Rekeys(const std::string& key) {
        SystemServer::AppCfgCryptoUpdateReq request{m_handle, {}, {}};
        EncryptWith(request, key);
        return SetsAt(SystemServer::APP_CFG_URI_CRYPTO_PARAM, BytesOf(request));
    }
    uint16_t Sets(const std::string& query) {
        return SetsAt(SystemServer::APP_CFG_URI_DATA, DataRecord(m_handle, query));
    }
    Reply Gets(const std::string& query) {
        return GetsAt(SystemServer::APP_CFG_URI_DATA, DataRecord(m_handle, query));
    }
    Reply GetsRaw(const std::string& key) {
        return GetsAt(SystemServer::APP_CFG_URI_RAW_DATA, RawRecord(m_handle, key));
    }
    // Data as it stands, so that it may lack its NUL or differ from what dataLen says.
    uint16_t SetsRawBytes(const std::string& key, uint32_t dataLen, const std::string& data) {
        return SetsAt(SystemServer::APP_CFG_URI_RAW_DATA, RawRecord(m_handle, key, dataLen) + data);
    }
    uint16_t SetsRaw(const std::string& key, const std::string& text) {
        return SetsRawBytes(key, static_cast<uint32_t>(text.size()) + 1, text + '\0');
    }

    // What a get answers: values joined by ";", the fragment, or "status 404".
    std::string Value(const std::string& query) {
        return Told(Gets(query), [](const std::string& payload) {
            std::string text;
            for (const std::string& value : Values(payload).value_or(std::vector{MALFORMED})) {
                text += ";" + value;
            }
            return text.substr(text.empty() ? 0 : 1);
        });
    }
    std::string Raw(const std::string& key) {
        return Told(GetsRaw(key),
                    [](const std::string& content) { return Fragment(content).value_or(MALFORMED); });
    }

    SystemServer::AppCfgHndl m_handle = Handle("app1", "net"); // whom the requests for an item are about

private:
    inline static const std::string MALFORMED = "(malformed)";

    uint16_t Status(uint16_t uri, uint8_t method, const std::string& payload) {
        return Asks(uri, method, payload).header.status;
    }
    uint16_t SetsAt(uint16_t uri, const std::string& payload) {
        return Status(uri, SystemServer::APP_CFG_METHOD_SET, payload);
    }
    Reply GetsAt(uint16_t uri, const std::string& payload) {
        return Asks(uri, SystemServer::APP_CFG_METHOD_GET, payload);
    }
    template <typename Parse>
    static std::string Told(const Reply& reply, Parse parse) {
        const uint16_t status = reply.header.status;
        return status == 200 ? parse(reply.payload) : "status " + std::to_string(status);
    }
};

} // namespace Support

#endif
