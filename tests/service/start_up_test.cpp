#include "support/service_calls.h"
#include "support/service_fixture.h"

extern "C" int CreateAppCfgMgmtService();

namespace ServiceTest {

class AStartUp : public ADirectory {
protected:
    AStartUp() { TakePrivilegedCalls(); }
    ~AStartUp() override { TakePrivilegedCalls(); }
};

TEST_F(AStartUp, BecomesItsUserWithItsCapabilities) {
    EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability("sshd"), 0);
    EXPECT_EQ(TakePrivilegedCalls(),
              (Lines{"capget 20080522", "prctl 8 1", "getpwnam_r 256", "setgid 65534", "setuid 105",
                     "capset 20080522, high permitted 22", "capget 20080522"}));
}

struct PrivilegeFault {
    Call call;
    int after;
    size_t calls; // made until then, the failing one included
};

TEST_F(AStartUp, StopsAtTheFirstPrivilegeThatFails) {
    const PrivilegeFault faults[] = {
        {Call::CAPGET, 0, 1}, {Call::PRCTL, 0, 2},  {Call::GETPWNAM_R, 0, 3}, {Call::SETGID, 0, 4},
        {Call::SETUID, 0, 5}, {Call::CAPSET, 0, 6}, {Call::CAPGET, 1, 7},
    };
    for (const PrivilegeFault& fault : faults) {
        const Injection injection({fault.call, fault.after + 1});
        TakePrivilegedCalls();
        m_log.Clear();
        EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability("sshd"), -1);
        EXPECT_EQ(m_log.Errors().size(), 1U) << fault.calls;
        EXPECT_EQ(TakePrivilegedCalls().size(), fault.calls);
    }
}

TEST_F(AStartUp, NeedsAUserThatExists) {
    EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability(""), -1);
    EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability("no-such-user"), -1);
    EXPECT_EQ(m_log.Errors().size(), 2U);
}

// The framework gets 0 in every case, and no socket that nobody serves is left behind.
TEST_F(AStartUp, ThatFailsIsToldAndEndsTheRun) {
    for (const Call call : {Call::EVENT_MGR_NEW, Call::SETUID, Call::SERVER_REGISTER}) {
        const Injection injection({call});
        TakePrivilegedCalls();
        m_log.Clear();
        EXPECT_EQ(CreateAppCfgMgmtService(), 0);
        EXPECT_THAT(m_log.Errors(), ::testing::Not(IsEmpty()));
        EXPECT_FALSE(std::filesystem::exists(Path(APP_CFG_SERVICE_NAME)));
        if (LastEventMgr() != nullptr) {
            kestrel_event_mgr_free(LastEventMgr());
        }
    }
    EXPECT_THAT(m_log.Of({"start running"}), IsEmpty());
}

TEST_F(AStartUp, ThatSucceedsServesUntilItIsStopped) {
    std::thread service([] { EXPECT_EQ(CreateAppCfgMgmtService(), 0); });
    EXPECT_TRUE(Eventually([&] { return m_log.Count("App configuration manager start running...") == 1; }));
    {
        Client client;
        EXPECT_EQ(client.Value("a"), "status 404");
        kestrel_event_mgr_stop(LastEventMgr());
        service.join();
    }
    kestrel_event_mgr_free(LastEventMgr());
    EXPECT_EQ(m_log.Errors().size(), 1U);
}

} // namespace ServiceTest
