#include "faults.h"
#include "service_fixture.h"

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
    EXPECT_THAT(m_log.Of(), ElementsAre("1 Cap data 0x11, 0x12, 0x13",
                                        "1 uid=" + std::to_string(getuid()) + "  euid=" +
                                            std::to_string(geteuid()) + "  gid=" + std::to_string(getgid()),
                                        "1 Cap data 0x6762bc17, 0x6762bc17, 0x6762bc17"));
}

struct PrivilegeFault {
    Call call;
    int after;
    const char* line;
    size_t calls; // made until then, the failing one included
};

TEST_F(AStartUp, StopsAtTheFirstPrivilegeThatFails) {
    const PrivilegeFault faults[] = {
        {Call::CAPGET, 0, "3 capget failed, ret = -1 !", 1},
        {Call::PRCTL, 0, "3 System call prctl fail errno -1 ", 2},
        {Call::GETPWNAM_R, 0, "3 [sshd]:getpwnam_r fail.", 3},
        {Call::SETGID, 0, "3 [sshd]:setgid fail.", 4},
        {Call::SETUID, 0, "3 [sshd]:setuid fail.", 5},
        {Call::CAPSET, 0, "3 [sshd]:capset fail.", 6},
        {Call::CAPGET, 1, "3 [sshd]:capget fail.", 7},
    };
    for (const PrivilegeFault& fault : faults) {
        const Failing failing(fault.call, fault.after);
        TakePrivilegedCalls();
        m_log.Clear();
        EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability("sshd"), -1) << fault.line;
        EXPECT_EQ(m_log.Errors(), Lines{fault.line});
        EXPECT_EQ(TakePrivilegedCalls().size(), fault.calls) << fault.line;
    }
}

TEST_F(AStartUp, NeedsAUserThatExists) {
    EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability(""), -1);
    EXPECT_EQ(AppCfgMgmtServer::ChangeServerCapability("no-such-user"), -1);
    EXPECT_EQ(m_log.Errors(), (Lines{"3 userName is empty.", "3 [no-such-user]:getpwnam_r fail."}));
}

struct RunFault {
    Call call;
    Lines lines;
};

// The framework gets 0 in every case, and no socket that nobody serves is left behind.
TEST_F(AStartUp, ThatFailsIsToldAndEndsTheRun) {
    const RunFault faults[] = {
        {Call::EVENT_MGR_NEW, {"3 kestrel_event_mgr_new fail."}},
        {Call::SETUID, {"3 [sshd]:setuid fail.", "3 Change AppCfg Capability fail."}},
        {Call::SERVER_REGISTER, {"3 kestrel_server_register fail."}},
    };
    for (const RunFault& fault : faults) {
        const Failing failing(fault.call);
        TakePrivilegedCalls();
        m_log.Clear();
        EXPECT_EQ(CreateAppCfgMgmtService(), 0);
        EXPECT_EQ(m_log.Errors(), fault.lines);
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
