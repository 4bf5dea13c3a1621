// The service on an event loop of this process, and a small language for what its clients do and see.
#ifndef TESTS_SERVICE_SERVICE_FIXTURE_H
#define TESTS_SERVICE_SERVICE_FIXTURE_H

#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app_cfg_mgmt_server.h"
#include "app_cfg_wire.h"
#include "kestrel/kestrel_host.h"
#include "platform/root_directory.h"
#include "platform/test_client.h"

namespace ServiceTest {

using namespace SystemServer;
using PlatformTest::Eventually;
using PlatformTest::Reply;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

// The service's log lines as "level text", the test's directory and descriptors' numbers cut out, so that
// they can be compared. Threads: the sink is called from any.
class LogLines {
public:
    explicit LogLines(const std::string& directory);
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    // Lines that contain one of the parts; all lines when none is given. Traces only on request.
    Lines Of(const Lines& parts = {}, int lowestLevel = 1);
    size_t Count(const std::string& part) { return Of({part}, 0).size(); }
    // The lines of level 3.
    Lines Errors();
    // Where the lines came from that do not carry the service's module and its kind of file name.
    Lines Strays();
    void Clear();

private:
    static void Take(void* self, int module, int level, const char* file, int line, const char* text);

    const std::string m_directory;
    std::mutex m_mutex;
    Lines m_lines; // these two: guarded by m_mutex
    Lines m_strays;
};

AppCfgHndl Handle(const std::string& owner, const std::string& name, uint32_t index = 0);

// Fills a text field; a text of the field's size leaves no room for a NUL.
template <size_t Size>
void Put(char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::memcpy(field, text.data(), std::min(Size, text.size()));
}

template <typename Record>
std::string BytesOf(const Record& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

std::string Frame(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence = 0);

// A client in bytes, with the service's requests as verbs. A connection that is lost answers status 0.
class Client : public PlatformTest::TestClient {
public:
    Client() : TestClient(APP_CFG_SERVICE_NAME) {}

    Reply Asks(uint16_t uri, uint8_t method, const std::string& payload, uint32_t sequence = 0);
    uint16_t Creates(const AppCfgCreateReq& item);
    uint16_t Deletes();
    uint16_t Restores();
    uint16_t Sets(const std::string& query);
    Reply Gets(const std::string& query);
    Reply GetsRaw(const std::string& key);
    // Data as it stands, so that it may lack its NUL or differ from what dataLen says.
    uint16_t SetsRawBytes(const std::string& key, uint32_t dataLen, const std::string& data);
    uint16_t SetsRaw(const std::string& key, const std::string& text);

    // What a get answers: values joined by ";", the fragment, or "status 404".
    std::string Value(const std::string& query);
    std::string Raw(const std::string& key);

    AppCfgHndl m_handle = Handle("app1", "net"); // whom the requests for an item are about
};

// A directory of the test's own, which is also the framework's root, and the log.
class ADirectory : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_root.Of(name); }
    // Writes a file and returns its path.
    std::string Writes(const std::string& name, const std::string& text) const {
        return m_root.Writes(name, text);
    }
    std::string Text(const std::string& name) const { return m_root.Text(name); }

    PlatformTest::RootDirectory m_root;
    LogLines m_log{m_root.Of("")};
};

// A service that listens there, with one client.
class AService : public ADirectory {
protected:
    AService();
    ~AService() override;

    // The loop ends as at SIGTERM, with a last save for every item.
    void Stops();

    // app1.net.0, plain JSON, saved and backed up at once. An empty name is no path.
    AppCfgCreateReq Item(const std::string& cfg = "cfg", const std::string& backup = "bak",
                         const std::string& defaults = "def") const;
    // Writes the text as the file "cfg" and makes an item of it.
    void HasItem(const std::string& text);

    static Lines RegisteredKeys();
    static bool Knows(const Lines& keys) {
        return Eventually([&] { return RegisteredKeys() == keys; });
    }

private:
    kestrel_event_mgr* const m_loop;
    std::thread m_thread;

protected:
    Client m_client;
};

} // namespace ServiceTest

#endif
