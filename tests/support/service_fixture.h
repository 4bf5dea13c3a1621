// The service on an event loop of this process, and a small language for what its clients do and see.
#ifndef TESTS_SUPPORT_SERVICE_FIXTURE_H
#define TESTS_SUPPORT_SERVICE_FIXTURE_H

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app_cfg_log.h"
#include "app_cfg_mgmt_server.h"
#include "item_encryption.h"
#include "kestrel/kestrel_host.h"
#include "log_lines.h"
#include "root_directory.h"
#include "service_client.h"

namespace ServiceTest {

using namespace SystemServer;
using namespace Support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A directory of the test's own, which is also the framework's root, and the service's log.
class ADirectory : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_root.Of(name); }
    // Writes a file and returns its path.
    std::string Writes(const std::string& name, const std::string& text) const {
        return m_root.Writes(name, text);
    }
    std::string Text(const std::string& name) const { return m_root.Text(name); }

    RootDirectory m_root;
    LogLines m_log{m_root.Of(""), APP_CFG_LOG_MODULE, 0};
};

// A service that listens there, with one client.
class AService : public ADirectory {
protected:
    AService() : m_loop(NewService()), m_thread([this] { kestrel_event_mgr_run(m_loop, -1); }) {}
    ~AService() override {
        Stops();
        kestrel_event_mgr_free(m_loop);
        EXPECT_THAT(RegisteredKeys(), IsEmpty());
    }

    // The loop ends as at SIGTERM, with a last save for every item.
    void Stops() {
        kestrel_event_mgr_stop(m_loop);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    // app1.net.0, plain JSON, saved and backed up at once. An empty name is no path.
    AppCfgCreateReq Item(const std::string& cfg = "cfg", const std::string& backup = "bak",
                         const std::string& defaults = "def") const {
        AppCfgCreateReq item{};
        item.hndl = m_client.m_handle;
        item.storageType = ConfigStorageType::JSON;
        item.saveStrategy = item.backupStrategy = ConfigStrategy::INSTANT;
        Put(item.cfgPath, cfg.empty() ? cfg : Path(cfg));
        Put(item.backupPath, backup.empty() ? backup : Path(backup));
        Put(item.defaultPath, defaults.empty() ? defaults : Path(defaults));
        return item;
    }
    // Writes the text as the file "cfg" and makes an item of it.
    void HasItem(const std::string& text) {
        Writes("cfg", text);
        ASSERT_EQ(m_client.Creates(Item()), 200);
        m_log.Clear();
    }

    static Lines RegisteredKeys() {
        const std::lock_guard<std::mutex> lock(AppCfgMgmtServer::m_itemMapMutex);
        Lines keys;
        for (const auto& entry : AppCfgMgmtServer::m_appCfgMgmtItemMap) {
            keys.push_back(entry.first);
        }
        return keys;
    }
    static bool Knows(const Lines& keys) {
        return Eventually([&] { return RegisteredKeys() == keys; });
    }

private:
    static kestrel_event_mgr* NewService() {
        kestrel_event_mgr* const loop = kestrel_event_mgr_new(0);
        EXPECT_EQ(kestrel_server_register(APP_CFG_SERVICE_NAME, loop, &AppCfgMgmtServer::m_serverOps), 0);
        return loop;
    }

    kestrel_event_mgr* const m_loop;
    std::thread m_thread;

protected:
    Client m_client;
};

} // namespace ServiceTest

#endif
