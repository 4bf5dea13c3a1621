// Live items for targets, and requests to them.
#ifndef FUZZ_FUZZ_ITEMS_H
#define FUZZ_FUZZ_ITEMS_H

#include <memory>
#include <set>
#include <string>

#include "app_cfg_mgr.h"
#include "fuzz_documents.h"

namespace Fuzz {

// A manager of a letter ("j", "x" or "i") and a document, or null when the service refuses it.
std::shared_ptr<SystemServer::AppCfgMgr> LoadManager(const std::string& input);

// What a manager of the kind saves now loads again and is the same.
void CheckLoadsAgain(char kind, SystemServer::AppCfgMgr& manager);

// What a get for the key yields, nothing when it is refused.
std::string ValueAt(const SystemServer::AppCfgMgr& manager, const std::string& key);

struct Request {
    uint16_t uri = 0;
    uint8_t method = 0;
    char item = 0; // an item that there has to be for it, if any
    std::string content;
};

// A request from its text: URI and method as digits, the letter of an item, and what the content is made of.
// Items: "j" JSON, "x" XML, "i" INI, "e" encrypted XML; other letters are unknown ones, and with "-" the
// content is what stands there. Content: to create, the digits of storage, encryption, save and backup and
// three file names ("3011json;json.bak;json.def"); for values, the query; for raw data, the key, a line feed
// and the data; for a key change, the digit of the encryption and the key.
Request ReadRequest(const std::string& text);

// A client that asks for what the input says. Its items and their files are made when they are first asked
// about, and are gone with it.
class AConnection {
public:
    AConnection();
    ~AConnection();
    AConnection(const AConnection&) = delete;
    AConnection& operator=(const AConnection&) = delete;

    void Asks(const Request& request);

private:
    void Has(char item);
    uint16_t Sends(const Request& request);
    void Follow(const Request& request, uint16_t status);

    std::set<char> m_made;        // items that were asked about
    std::set<std::string> m_keys; // items that there are
};

} // namespace Fuzz

#endif
