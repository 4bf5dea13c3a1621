// Requests from one connection: each is answered once with a known status, and the registry is as they say.
//
// Input: any number of requests, each a URI and a method as digits, the letter of an item, and what the
// content is made of. Items: "j" JSON, "x" XML, "i" INI, "e" encrypted XML, made when they are first asked
// about; other letters are unknown ones, and with "-" the content is what stands there. Content: to create,
// the digits of storage, encryption, save and backup and three file names ("3011json;json.bak;json.def"); for
// values, the query; for raw data, the key, a line feed and the data; for a key change, the digit of the
// encryption and the key.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_mgmt_server.h"
#include "fuzz_support.h"
#include "support/records.h"
#include "tern/tern.h"

namespace {

using namespace SystemServer;
using namespace Support;
using Fuzz::Check;
using Fuzz::PathOf;
using Fuzz::WriteFile;

struct Request {
    uint16_t uri;
    uint8_t method;
    char item; // that there has to be for it, if any
    std::string content;
};

constexpr uint8_t REPLY_FLAG = 0x80;

constexpr char JSON_TEXT[] =
    R"({"volume": 5, "name": "radio", "list": [1, {"a": "b"}], "ref": "${name}", "n": null})";
constexpr char XML_TEXT[] =
    "<config version=\"1\"><name>radio</name><item id=\"x\">1</item><item id=\"y\">2</item>"
    "<level><deep>text<b/></deep></level><ref>${name}</ref></config>";
constexpr char INI_TEXT[] = "name=radio\nvolume=5\n[net]\nname=${volume}\n; comment\n";

kestrel_connection g_connection = {-1};

// The replies of the request that is being served.
struct Replies {
    unsigned count = 0;
    tern_header header = {};
    std::string content;
};
Replies g_replies;

AppCfgHndl HandleOfItem(char item) {
    return Handle("a", std::string(1, item));
}

// A path that leads nowhere but to the target's own files, or to the device without an end.
std::string HarmlessPath(const std::string& text) {
    if (text.empty() || text == "/dev/zero") {
        return text;
    }
    std::string name = text;
    std::replace(name.begin(), name.end(), '/', '_');
    return PathOf(name);
}

void MakeFiles() {
    Fuzz::ClearFiles();
    for (const char* suffix : {"", ".bak", ".def"}) {
        WriteFile(std::string("json") + suffix, JSON_TEXT);
        WriteFile(std::string("xml") + suffix, XML_TEXT);
        WriteFile(std::string("ini") + suffix, INI_TEXT);
    }
    std::string cipher;
    AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, "", AppCfgCryptoParam{})
        ->Encrypt(XML_TEXT, cipher);
    WriteFile("encrypted", cipher);
    WriteFile("array", "[]");
    WriteFile("malformed", "{<");
    Check(mkdir(PathOf("directory").c_str(), 0700) == 0, "there is a directory");
    Check(mkfifo(PathOf("fifo").c_str(), 0600) == 0, "there is a FIFO");
}

// What the letter of a known item is created from.
std::string CreationOf(char item) {
    switch (item) {
    case 'j':
        return "3011json;json.bak;json.def";
    case 'x':
        return "1011xml;xml.bak;xml.def";
    case 'i':
        return "0011ini;ini.bak;ini.def";
    case 'e':
        return "1111encrypted;encrypted.bak;encrypted";
    default:
        return "";
    }
}

// The timing strategy may take a minute to stop, so that it is not asked for.
int32_t StrategyOf(char digit) {
    return digit == '3' ? 0 : digit - '0';
}

std::string CreateContent(char item, const std::string& text) {
    const std::string digits = (text + "0000").substr(0, 4);
    AppCfgCreateReq record = {};
    record.hndl = HandleOfItem(item);
    record.storageType = static_cast<ConfigStorageType>(digits[0] - '0');
    record.cryptoType = static_cast<ConfigCryptoType>(digits[1] - '0');
    record.saveStrategy = static_cast<ConfigSaveStrategy>(StrategyOf(digits[2]));
    record.backupStrategy = static_cast<ConfigBackupStrategy>(StrategyOf(digits[3]));
    std::string names = text.substr(std::min(digits.size(), text.size())) + ";;;";
    for (auto* field : {&record.cfgPath, &record.backupPath, &record.defaultPath}) {
        const size_t end = names.find(';');
        Put(*field, HarmlessPath(names.substr(0, end)));
        names.erase(0, end + 1);
    }
    return BytesOf(record);
}

std::string RawContent(char item, const std::string& text, bool isSet) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string data = text.substr(std::min(end + 1, text.size()));
    return RawRecord(HandleOfItem(item), text.substr(0, end), static_cast<uint32_t>(data.size()) + 1) +
           (isSet ? data + '\0' : "");
}

std::string KeyChangeContent(char item, const std::string& text) {
    AppCfgCryptoUpdateReq record = {HandleOfItem(item), ConfigCryptoType::NONE, {}};
    if (text.empty()) {
        return BytesOf(record.hndl);
    }
    record.cryptoType = static_cast<ConfigCryptoType>(text[0] - '0');
    std::memcpy(&record.cryptoParam, text.data() + 1, std::min(text.size() - 1, sizeof record.cryptoParam));
    return BytesOf(record);
}

unsigned MethodOf(const Request& request) {
    return request.method & ~unsigned{REPLY_FLAG};
}

std::string ContentOf(const Request& request, const std::string& text) {
    switch (request.uri) {
    case APP_CFG_URI_ITEM:
        return MethodOf(request) == APP_CFG_METHOD_CREATE ? CreateContent(request.item, text)
                                                          : BytesOf(HandleOfItem(request.item)) + text;
    case APP_CFG_URI_DATA:
        return DataRecord(HandleOfItem(request.item), text);
    case APP_CFG_URI_RAW_DATA:
        return RawContent(request.item, text, MethodOf(request) == APP_CFG_METHOD_SET);
    case APP_CFG_URI_CRYPTO_PARAM:
        return KeyChangeContent(request.item, text);
    default:
        return BytesOf(HandleOfItem(request.item)) + text;
    }
}

// A record that names files must not name any of this machine, nor a strategy that takes long to stop.
std::string Tamed(const Request& request) {
    if (request.uri != APP_CFG_URI_ITEM || MethodOf(request) != APP_CFG_METHOD_CREATE ||
        request.content.size() < sizeof(AppCfgCreateReq)) {
        return request.content;
    }
    AppCfgCreateReq record;
    std::memcpy(&record, request.content.data(), sizeof record);
    for (auto* field : {&record.cfgPath, &record.backupPath, &record.defaultPath}) {
        Put(*field, HarmlessPath(std::string(*field, sizeof *field)));
    }
    record.saveStrategy = ConfigSaveStrategy::INSTANT;
    record.backupStrategy = ConfigBackupStrategy::DELAY;
    return BytesOf(record) + request.content.substr(sizeof record);
}

std::string KeyOf(const Request& request) {
    AppCfgHndl handle = {};
    std::memcpy(&handle, request.content.data(), std::min(request.content.size(), sizeof handle));
    return AppCfgMgmtServer::GetAppCfgKey(&handle);
}

std::set<std::string> RegisteredKeys() {
    std::set<std::string> keys;
    const std::unique_lock<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex, std::try_to_lock);
    Check(lock.owns_lock(), "the registry's lock is free between requests");
    for (const auto& [key, item] : AppCfgMgmtServer::m_appCfgMgmtItemMap) {
        Check(item.appCfgMgr != nullptr && item.connFd == g_connection.fd, "an item is whole");
        keys.insert(key);
    }
    return keys;
}

void CheckContent(const Request& request, const Replies& replies) {
    const std::string& content = replies.content;
    if (replies.header.status != APP_CFG_STATUS_OK || MethodOf(request) != APP_CFG_METHOD_GET) {
        Check(content.empty(), "only what was read is sent");
    } else if (request.uri == APP_CFG_URI_RAW_DATA) {
        Check(Fragment(content).has_value(), "a fragment has its length");
    } else {
        Check(Values(content).has_value(), "values have their lengths");
    }
}

Request ReadRequest(const std::string& text) {
    Request request{static_cast<uint16_t>(text[0] - '0'), static_cast<uint8_t>(text[1] - '0'), text[2],
                    text.substr(3)};
    if (request.item != '-') {
        request.content = ContentOf(request, request.content);
    }
    request.content = Tamed(request);
    return request;
}

// Its items end with it.
class Client {
public:
    Client() { MakeFiles(); }
    ~Client() {
        AppCfgMgmtServer::CloseConnection(&g_connection);
        Check(RegisteredKeys().empty(), "a connection that closes takes its items with it");
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Asks(const Request& request) {
        Has(request.item);
        Follow(request, Sends(request));
    }

private:
    void Has(char item);
    static uint16_t Sends(const Request& request);
    void Follow(const Request& request, uint16_t status);

    std::set<char> m_made;        // items that were asked about
    std::set<std::string> m_keys; // items that there are
};

void Client::Has(char item) {
    Request creation{APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE, item, CreationOf(item)};
    if (creation.content.empty() || m_made.count(item) > 0) {
        return;
    }
    creation.content = ContentOf(creation, creation.content);
    Check(Sends(creation) == APP_CFG_STATUS_OK, "an ordinary item is created");
    m_keys.insert(KeyOf(creation));
    m_made.insert(item);
}

uint16_t Client::Sends(const Request& request) {
    g_replies = Replies();
    tern_message* const msg = tern_message_new(0);
    msg->header->uri = request.uri;
    msg->header->method = request.method;
    Check(tern_content_add(msg, request.content.data(), static_cast<uint32_t>(request.content.size()), 0) ==
              0,
          "the request has its content");
    AppCfgMgmtServer::ProcessMsg(msg, &g_connection);
    tern_message_put(msg);
    const uint16_t status = g_replies.header.status;
    Check(g_replies.count == 1, "there is one reply");
    Check(status == 200 || status == 400 || status == 403 || status == 404 || status == 500,
          "its status is known");
    Check(g_replies.header.uri == request.uri && g_replies.header.method == (request.method | REPLY_FLAG),
          "it is a reply to the request");
    CheckContent(request, g_replies);
    return status;
}

// A creation that fails has ended the item that it would have replaced, or was refused before.
void Client::Follow(const Request& request, uint16_t status) {
    const std::set<std::string> keys = RegisteredKeys();
    const std::string key = KeyOf(request);
    const bool isItem = request.uri == APP_CFG_URI_ITEM;
    if (isItem && MethodOf(request) == APP_CFG_METHOD_CREATE) {
        if (status == APP_CFG_STATUS_OK) {
            m_keys.insert(key);
        } else if (keys.count(key) == 0) {
            m_keys.erase(key);
        }
    } else if (isItem && MethodOf(request) == APP_CFG_METHOD_DELETE && status == APP_CFG_STATUS_OK) {
        m_keys.erase(key);
    }
    Check(keys == m_keys, "no other item came or went");
}

} // namespace

// In place of the framework's: the reply is kept and not sent.
extern "C" int tern_message_async_send(tern_message* msg, kestrel_connection*, int) {
    void* content = nullptr;
    uint32_t length = 0;
    ++g_replies.count;
    g_replies.header = *msg->header;
    if (tern_content(msg, &content, &length) == 0) {
        g_replies.content.assign(static_cast<const char*>(content), length);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Client client;
    for (const std::string& request : Fuzz::Parts(data, size, 0)) {
        if (request.size() >= 3) {
            client.Asks(ReadRequest(request));
        }
    }
    return 0;
}
