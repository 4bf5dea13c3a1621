// The service on an event loop of this process, and a small language for what its clients do and see.
#ifndef TESTS_SUPPORT_SERVICE_FIXTURE_H
#define TESTS_SUPPORT_SERVICE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app_cfg_log.h"
#include "item_encryption.h"
#include "log_lines.h"
#include "running_service.h"
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
class AService : public ADirectory, protected RunningService {
protected:
    ~AService() override {
        Stops();
        EXPECT_THAT(RegisteredKeys(), IsEmpty());
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

    Client m_client;
};

} // namespace ServiceTest

#endif
