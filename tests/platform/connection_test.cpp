#include <list>

#include "test_service.h"

namespace PlatformTest {

namespace {

constexpr uint32_t MEBIBYTE = 1U << 20;

} // namespace

class AConnection : public AServer {
protected:
    AConnection() { Runs(); }

    // The i-th request, counted by sequence, is answered with this payload, in pieces of this length.
    static void ExpectNext(TestClient& client, uint32_t i, Method method, const std::string& payload,
                           size_t piece = SIZE_MAX) {
        const std::optional<Reply> reply = client.Receives();
        ASSERT_TRUE(reply) << i;
        const auto length = static_cast<uint32_t>(payload.size());
        const auto answered = static_cast<uint8_t>(method | 0x80);
        const tern_header expected{0x4E54, 0, answered, 1, 200, i, length + 8};
        ASSERT_EQ(std::memcmp(&reply->header, &expected, sizeof expected), 0) << i;
        ASSERT_TRUE(reply->payload == payload) << i;
        ASSERT_EQ(reply->pieces, payload.empty() ? 0 : (length - 1) / piece + 1) << i;
        ASSERT_EQ(reply->firstLength, std::min<size_t>(length, piece)) << i;
    }
};

// Each size meets each other one before and behind it, in one stream, cut at every kind of place. Replies of
// all kinds wait before the first is read: they refer to their request or to the message's pool, in few
// pieces and in more than one call takes.
TEST_F(AConnection, AnswersPipelinedFramesOfMixedSizesInOrder) {
    const size_t sizes[] = {0, 1, 7, 8, 24, 100, 1023, 1024, 12360, 16359, 16360, 16361, 40000, 0, 0, 3};
    std::vector<std::pair<Method, std::string>> replies;
    std::string stream;
    const auto adds = [&](Method method, const std::string& request, const std::string& reply) {
        stream += Frame(method | 0x80, request, static_cast<uint32_t>(replies.size()));
        stream[stream.size() - request.size() - 22] = 9; // kind and reply bit reach the service as they come
        replies.emplace_back(method, reply);
    };
    for (const size_t first : sizes) {
        for (const size_t second : sizes) {
            adds(ECHO, Pattern(first), Pattern(first));
            adds(RETURN_MESSAGE, Pattern(second), Pattern(second));
            adds(GIVE, Bytes(3000) + Bytes(1), Pattern(3000));
            adds(RETURN_AND_CLEAR, Pattern(first), Pattern(first));
        }
    }
    TestClient client;
    std::thread writer([&] { EXPECT_TRUE(client.Sends(stream)); });
    EXPECT_TRUE(Eventually([this] { return m_served > 240; })); // more of replies than a socket takes
    for (uint32_t i = 0; i < replies.size() && !HasFailure(); ++i) {
        const auto& [method, payload] = replies[i];
        ExpectNext(client, i, method, payload, method == GIVE ? 1 : SIZE_MAX);
    }
    client.ShutDownWriting();
    writer.join();
}

TEST_F(AConnection, IsPausedWhenItsClientDoesNotReadWhileOthersAreServed) {
    const std::string request = Frame(GIVE, Bytes(64U << 10) + std::string(12000, ' '));
    TestClient slow;
    TestClient other;
    int sent = 0;
    int asked = 0;
    // Until the socket has been full during ten turns of the loop: nobody reads from it.
    for (int full = 0; full < 10;) {
        if (const size_t taken = slow.SendsWithoutWaiting(request)) {
            full = 0;
            ASSERT_TRUE(slow.Sends(request.substr(taken)));
            ASSERT_LT(++sent, 1000);
        } else {
            ++full;
            ++asked;
            ASSERT_TRUE(other.Asks(ECHO, "served"));
        }
    }
    const int served = m_served - asked;
    EXPECT_GE(served, 16);     // a MiB of replies
    EXPECT_LE(served, 16 + 8); // and what the socket took
    EXPECT_LT(served, sent);
    for (int i = 0; i < sent; ++i) {
        ExpectNext(slow, 0, GIVE, Pattern(64U << 10));
    }
    EXPECT_TRUE(Eventually([this] { return m_writable > 0; }));
    EXPECT_TRUE(slow.Asks(ECHO, "again"));
}

TEST_F(AConnection, ThatIsHalfClosedStillGetsItsReplies) {
    TestClient client;
    ASSERT_TRUE(client.Sends(Frame(GIVE, Bytes(900'000)) + Frame(ECHO, "cut off").substr(0, 28)));
    client.ShutDownWriting();
    for (int turn = 0; turn < 3; ++turn) { // in which the service meets the end
        EXPECT_TRUE(TestClient().Asks(ECHO));
    }
    ExpectNext(client, 0, GIVE, Pattern(900'000));
    EXPECT_TRUE(client.MeetsEnd());
    EXPECT_TRUE(HasClosed(4));
}

TEST_F(AConnection, WhosePeerIsGoneWithRepliesWaitingOrToComeIsClosedAfterTheCallback) {
    {
        TestClient client;
        TestClient waiting;
        ASSERT_TRUE(waiting.Sends(Frame(GIVE, Bytes(4 * MEBIBYTE)) + Frame(GIVE, Bytes(4 * MEBIBYTE))));
        ASSERT_TRUE(Eventually([this] { return m_served > 0; }));
        ASSERT_TRUE(client.Sends(Frame(HOLD) + Frame(ECHO, "behind it")));
        ASSERT_TRUE(Eventually([this] { return m_holds.load(); }));
    }
    m_letGo.set_value();
    EXPECT_TRUE(HasClosed(2));
    EXPECT_TRUE(TestClient().Asks(ECHO, "others go on"));
}

// What clients hold together is bounded: those that stand still are closed, and an honest one with a longer
// request or reply of its own is not.
TEST_F(AConnection, ThatStandsStillIsClosedWhenAllHoldTooMuch) {
    TestClient honest;
    int closed = 0;
    size_t told = 0;
    for (const std::string& sent : {Frame(ECHO, std::string(16 * MEBIBYTE, 'p')).substr(0, 15 * MEBIBYTE),
                                    Frame(GIVE, Bytes(15 * MEBIBYTE))}) {
        std::list<TestClient> clients(12); // of which a loop holds eight
        for (TestClient& client : clients) {
            client.Sends(sent);
        }
        EXPECT_TRUE(Eventually([&] { return m_closed >= closed + 3; }));
        for (const uint32_t length : {2 * MEBIBYTE, 16 * MEBIBYTE}) {
            ASSERT_TRUE(honest.Sends(Frame(ECHO, Pattern(length))));
            ExpectNext(honest, 0, ECHO, Pattern(length));
        }
        EXPECT_LE(m_closed, closed + 5);
        told += static_cast<size_t>(m_closed - closed);
        EXPECT_EQ(m_log.Count("all together too many"), told);
        clients.clear();
        closed += 12;
        EXPECT_TRUE(HasClosed(closed)); // all is given back
    }
}

TEST_F(AConnection, IsClosedWithOneLineByABadFrame) {
    TestClient good;
    TestClient bad;
    ASSERT_TRUE(bad.Sends(Frame(ECHO, "in front") + std::string(16, '\0')));
    ExpectNext(bad, 0, ECHO, "in front");
    EXPECT_TRUE(bad.MeetsEnd());
    EXPECT_TRUE(good.Asks(ECHO, "others go on"));
    EXPECT_EQ(m_log.Of(), (Lines{"3 connection fd[N]: bad frame, magic 0x0000, length 0, closed"}));
}

} // namespace PlatformTest
