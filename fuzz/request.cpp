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
#include <sstream>

#include "app_cfg_mgmt_server.h"
#include "fuzz_support.h"
#include "support/item_encryption.h"
#include "tern/tern.h"

namespace Fuzz {

namespace {

using namespace SystemServer;
using namespace Support;
using Keys = std::set<std::string>;

constexpr unsigned REPLY_FLAG = 0x80;
constexpr char KEY[] = "key"; // of files that are encrypted

constexpr char JSON_TEXT[] =
    R"({"volume": 5, "name": "radio", "list": [1, {"a": "b"}], "ref": "${name}", "n": null})";
constexpr char XML_TEXT[] =
    "<config version=\"1\"><name>radio</name><item id=\"x\">1</item><item id=\"y\">2</item>"
    "<level><deep>text<b/></deep></level><ref>${name}</ref></config>";
constexpr char INI_TEXT[] = "name=radio\nvolume=5\n[net]\nname=${volume}\n; comment\n";

// What the known items are created from.
const std::map<char, std::string> CREATIONS = {{'j', "3011json;json.bak;json.def"},
                                               {'x', "1011xml;xml.bak;xml.def"},
                                               {'i', "0011ini;ini.bak;ini.def"},
                                               {'e', "1111encrypted;encrypted.bak;encrypted"}};

struct ARequest {
    uint16_t uri;
    uint8_t method;
    std::string content;

    bool Is(uint16_t otherUri, uint8_t otherMethod) const {
        return uri == otherUri && (method & ~REPLY_FLAG) == otherMethod;
    }
    std::string Key() const {
        AppCfgHndl handle = {};
        std::memcpy(&handle, content.data(), std::min(content.size(), sizeof handle));
        return AppCfgMgmtServer::GetAppCfgKey(&handle);
    }
};

// The replies to the request that is being served.
struct Replies {
    unsigned count = 0;
    tern_header header = {};
    std::string content;
};

kestrel_connection g_connection = {-1};
Replies g_replies;

void MakeFiles() {
    for (const auto& entry : std::filesystem::directory_iterator(DIRECTORY.Path())) {
        std::filesystem::remove_all(entry.path());
    }
    for (const std::string suffix : {"", ".bak", ".def"}) {
        DIRECTORY.Writes("json" + suffix, JSON_TEXT);
        DIRECTORY.Writes("xml" + suffix, XML_TEXT);
        DIRECTORY.Writes("ini" + suffix, INI_TEXT);
    }
    WritesEncrypted(DIRECTORY.Of("encrypted"), XML_TEXT, KEY);
    DIRECTORY.Writes("array", "[]");
    DIRECTORY.Writes("malformed", "{<");
    Check(mkdir(DIRECTORY.Of("directory").c_str(), 0700) == 0, "there is a directory");
    Check(mkfifo(DIRECTORY.Of("fifo").c_str(), 0600) == 0, "there is a FIFO");
}

std::string Creation(const AppCfgHndl& handle, const std::string& text) {
    const std::string digits = (text + "0000").substr(0, 4);
    AppCfgCreateReq record = {};
    record.hndl = handle;
    record.storageType = static_cast<ConfigStorageType>(digits[0] - '0');
    record.cryptoType = static_cast<ConfigCryptoType>(digits[1] - '0');
    record.cryptoParam = Parameters(KEY);
    record.saveStrategy = static_cast<ConfigSaveStrategy>(digits[2] - '0');
    record.backupStrategy = static_cast<ConfigBackupStrategy>(digits[3] - '0');
    std::istringstream names(text.substr(std::min(digits.size(), text.size())));
    for (auto* field : {&record.cfgPath, &record.backupPath, &record.defaultPath}) {
        std::string name;
        std::getline(names, name, ';');
        Put(*field, name);
    }
    return BytesOf(record);
}

std::string ContentOf(const ARequest& request, char item, const std::string& text) {
    const AppCfgHndl handle = Handle("a", std::string(1, item));
    if (request.Is(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE)) {
        return Creation(handle, text);
    }
    if (request.uri == APP_CFG_URI_DATA) {
        return DataRecord(handle, text);
    }
    if (request.uri == APP_CFG_URI_RAW_DATA) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string data = text.substr(std::min(end + 1, text.size())) + '\0';
        return RawRecord(handle, text.substr(0, end), static_cast<uint32_t>(data.size())) +
               (request.Is(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_SET) ? data : "");
    }
    if (request.uri == APP_CFG_URI_CRYPTO_PARAM && !text.empty()) {
        AppCfgCryptoUpdateReq record = {handle, static_cast<ConfigCryptoType>(text[0] - '0'), {}};
        std::memcpy(&record.cryptoParam, text.data() + 1,
                    std::min(text.size() - 1, sizeof record.cryptoParam));
        return BytesOf(record);
    }
    return BytesOf(handle) + text;
}

// A record that names files must name none of this machine, but for the device without an end, nor may it ask
// for the timing strategy, which can take a minute to stop.
void Tame(std::string& content) {
    AppCfgCreateReq record;
    std::memcpy(&record, content.data(), sizeof record);
    for (auto* field : {&record.cfgPath, &record.backupPath, &record.defaultPath}) {
        std::string name = FieldText(std::string(*field, sizeof *field));
        if (!name.empty() && name != "/dev/zero") {
            std::replace(name.begin(), name.end(), '/', '_');
            Put(*field, DIRECTORY.Of(name));
        }
    }
    if (record.saveStrategy == ConfigSaveStrategy::TIMING) {
        record.saveStrategy = ConfigSaveStrategy::NONE;
    }
    if (record.backupStrategy == ConfigBackupStrategy::TIMING) {
        record.backupStrategy = ConfigBackupStrategy::NONE;
    }
    content.replace(0, sizeof record, BytesOf(record));
}

ARequest RequestOf(uint16_t uri, uint8_t method, char item, const std::string& text) {
    ARequest request{uri, method, text};
    if (item != '-') {
        request.content = ContentOf(request, item, text);
    }
    if (request.Is(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE) &&
        request.content.size() >= sizeof(AppCfgCreateReq)) {
        Tame(request.content);
    }
    return request;
}

uint16_t StatusOf(const ARequest& request) {
    g_replies = Replies();
    tern_message* const msg = tern_message_new(0);
    msg->header->uri = request.uri;
    msg->header->method = request.method;
    const auto length = static_cast<uint32_t>(request.content.size());
    Check(tern_content_add(msg, request.content.data(), length, 0) == 0, "the request has its content");
    AppCfgMgmtServer::ProcessMsg(msg, &g_connection);
    tern_message_put(msg);
    const auto& [count, header, content] = g_replies;
    const std::set<unsigned> known = {200, 400, 403, 404, 500};
    Check(count == 1 && known.count(header.status) == 1, "there is one reply of a known status");
    Check(header.uri == request.uri && header.method == (request.method | REPLY_FLAG),
          "it is a reply to the request");
    if (header.status != APP_CFG_STATUS_OK || (request.method & ~REPLY_FLAG) != APP_CFG_METHOD_GET) {
        Check(content.empty(), "only what was read is sent");
    } else {
        Check(request.uri == APP_CFG_URI_RAW_DATA ? Fragment(content).has_value()
                                                  : Values(content).has_value(),
              "what was read has its lengths");
    }
    return header.status;
}

Keys RegisteredKeys() {
    Keys keys;
    const std::unique_lock<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex, std::try_to_lock);
    Check(lock.owns_lock(), "the registry's lock is free between requests");
    for (const auto& [key, item] : AppCfgMgmtServer::m_appCfgMgmtItemMap) {
        Check(item.appCfgMgr != nullptr && item.connFd == g_connection.fd, "an item is whole");
        keys.insert(key);
    }
    return keys;
}

// Makes the request, and makes of the keys that there were those that there have to be. A creation that fails
// has ended the item that it would have replaced, or was refused before.
void Ask(const ARequest& request, Keys& keys) {
    const bool isDone = StatusOf(request) == APP_CFG_STATUS_OK;
    const Keys now = RegisteredKeys();
    const std::string key = request.Key();
    const bool isCreation = request.Is(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE);
    if (isCreation && isDone) {
        keys.insert(key);
    } else if (isCreation ? now.count(key) == 0
                          : isDone && request.Is(APP_CFG_URI_ITEM, APP_CFG_METHOD_DELETE)) {
        keys.erase(key);
    }
    Check(now == keys, "no other item came or went");
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

void Request(const std::string& input) {
    MakeFiles();
    Keys keys;
    std::set<char> made; // items that were asked about
    for (const std::string& text : Parts(input)) {
        if (text.size() < 3) {
            continue;
        }
        const auto creation = CREATIONS.find(text[2]);
        if (creation != CREATIONS.end() && made.insert(text[2]).second) {
            Ask(RequestOf(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE, text[2], creation->second), keys);
            Check(g_replies.header.status == APP_CFG_STATUS_OK, "an ordinary item is created");
        }
        const auto digit = [&](size_t at) { return static_cast<uint8_t>(text[at] - '0'); };
        Ask(RequestOf(digit(0), digit(1), text[2], text.substr(3)), keys);
    }
    AppCfgMgmtServer::CloseConnection(&g_connection);
    Check(RegisteredKeys().empty(), "a connection that closes takes its items with it");
}

} // namespace Fuzz
