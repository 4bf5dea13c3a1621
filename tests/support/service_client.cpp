#include "service_client.h"

namespace Support {

using namespace SystemServer;

namespace {

std::string StatusText(const Reply& reply) {
    return "status " + std::to_string(reply.header.status);
}

} // namespace

Reply Client::Asks(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence) {
    if (!Sends(Frame(method, payload, sequence, uri))) {
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

uint16_t Client::Rekeys(const std::string& key) {
    AppCfgCryptoUpdateReq request{m_handle, {}, {}};
    EncryptWith(request, key);
    return Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, BytesOf(request)).header.status;
}

uint16_t Client::Sets(const std::string& query) {
    return Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_SET, DataRecord(m_handle, query)).header.status;
}

Reply Client::Gets(const std::string& query) {
    return Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_GET, DataRecord(m_handle, query));
}

Reply Client::GetsRaw(const std::string& key) {
    return Asks(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_GET, RawRecord(m_handle, key));
}

uint16_t Client::SetsRawBytes(const std::string& key, uint32_t dataLen, const std::string& data) {
    return Asks(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_SET, RawRecord(m_handle, key, dataLen) + data)
        .header.status;
}

uint16_t Client::SetsRaw(const std::string& key, const std::string& text) {
    return SetsRawBytes(key, static_cast<uint32_t>(text.size()) + 1, text + '\0');
}

std::string Client::Value(const std::string& query) {
    const Reply reply = Gets(query);
    if (reply.header.status != APP_CFG_STATUS_OK) {
        return StatusText(reply);
    }
    std::string text;
    for (const std::string& value : Values(reply.payload).value_or(std::vector<std::string>{"(malformed)"})) {
        text += ";" + value;
    }
    return text.substr(text.empty() ? 0 : 1);
}

std::string Client::Raw(const std::string& key) {
    const Reply reply = GetsRaw(key);
    return reply.header.status == APP_CFG_STATUS_OK ? Fragment(reply.payload).value_or("(malformed)")
                                                    : StatusText(reply);
}

} // namespace Support
