#ifndef TESTS_SUPPORT_SERVICE_CLIENT_H
#define TESTS_SUPPORT_SERVICE_CLIENT_H

#include <string>

#include "records.h"
#include "test_client.h"

namespace Support {

// A client in bytes, with the service's requests as verbs. A connection that is lost answers status 0.
class Client : public TestClient {
public:
    Client() : TestClient(SystemServer::APP_CFG_SERVICE_NAME) {}

    Reply Asks(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence = 0);
    uint16_t Creates(const SystemServer::AppCfgCreateReq& item);
    uint16_t Deletes();
    uint16_t Restores();
    // An empty key of encryption means plain files.
    uint16_t Rekeys(const std::string& key);
    uint16_t Sets(const std::string& query);
    Reply Gets(const std::string& query);
    Reply GetsRaw(const std::string& key);
    // Data as it stands, so that it may lack its NUL or differ from what dataLen says.
    uint16_t SetsRawBytes(const std::string& key, uint32_t dataLen, const std::string& data);
    uint16_t SetsRaw(const std::string& key, const std::string& text);

    // What a get answers: values joined by ";", the fragment, or "status 404".
    std::string Value(const std::string& query);
    std::string Raw(const std::string& key);

    SystemServer::AppCfgHndl m_handle = Handle("app1", "net"); // whom the requests for an item are about
};

} // namespace Support

#endif
