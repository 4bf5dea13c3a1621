#include <fcntl.h>
#include <sys/resource.h>

#include <list>

#include "test_service.h"

namespace PlatformTest {

// A process that may open few descriptors. Client and server share them here.
class AShortage : public AServer {
protected:
    AShortage() {
        ::getrlimit(RLIMIT_NOFILE, &m_former);
        Runs();
        SetLimit(120);
        // Clients come until one of them is not accepted; that one is the last.
        while (!HasPaused() || m_opened == static_cast<int>(m_clients.size())) {
            m_clients.emplace_back();
            EXPECT_TRUE(m_clients.back().Sends(Frame(ECHO, "waiting")));
            const auto come = static_cast<int>(m_clients.size());
            EXPECT_TRUE(Eventually([&] { return m_opened == come || HasPaused(); }));
        }
    }
    ~AShortage() override { SetLimit(m_former.rlim_cur); }

    void SetLimit(rlim_t limit) const {
        const rlimit changed{limit, m_former.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &changed);
    }
    bool HasPaused() { return m_log.Count("accepting pauses") > 0; }

    rlimit m_former{};
    std::list<TestClient> m_clients;
};

TEST_F(AShortage, LeavesTheServiceSomeAndAcceptsAgainWhenAConnectionCloses) {
    std::list<TestClient> files;
    while (files.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC)).IsConnected()) {
    }
    EXPECT_GT(files.size(), 20U); // the reserve of this limit is 30; the clients here take from it too
    files.clear();
    const int accepted = m_opened;
    ASSERT_TRUE(m_clients.front().Receives());
    EXPECT_TRUE(m_clients.front().Asks(ECHO, "those inside are served"));
    m_clients.pop_front();
    const std::optional<Reply> reply = m_clients.back().Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->payload, "waiting");
    EXPECT_EQ(m_opened, accepted + 1);
    EXPECT_EQ(m_log.Count("accepting pauses"), 1U);
}

TEST_F(AShortage, AcceptsAgainWhenDescriptorsBecomeFreeElsewhere) {
    SetLimit(m_former.rlim_cur);
    EXPECT_TRUE(m_clients.back().Receives());
    EXPECT_EQ(m_log.Count("accepting pauses"), 1U);
    EXPECT_EQ(m_log.Count("accepting again"), 1U);
}

} // namespace PlatformTest
