#include <sys/socket.h>

#include <numeric>

#include "test_service.h"

namespace PlatformTest {

namespace {

constexpr std::size_t MEBIBYTE = 1U << 20;

std::string Pattern(std::size_t length) {
    std::string text(length, '\0');
    std::iota(text.begin(), text.end(), '\0');
    return text;
}

} // namespace

class AConnection : public AServer {
protected:
    AConnection() { Runs(); }
};

TEST_F(AConnection, AnswersAFrameThatArrivesByteByByte) {
    TestClient client;
    for (const char byte : Frame(ECHO, "hello", 77)) {
        ASSERT_TRUE(client.Sends(std::string(1, byte)));
    }
    const std::optional<Reply> reply = client.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->payload, "hello");
    EXPECT_EQ(reply->header.magic, 0x4E54);
    EXPECT_EQ(reply->header.method, 0x80 | ECHO);
    EXPECT_EQ(reply->header.status, 200);
    EXPECT_EQ(reply->header.sequence, 77U);
    EXPECT_EQ(reply->header.length, 13U);
    EXPECT_EQ(reply->pieces, 1U);
    EXPECT_EQ(reply->firstLength, 5U);
}

TEST_F(AConnection, AnswersWithoutContentIn24Bytes) {
    const std::optional<Reply> reply = TestClient().Asks(ECHO);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->header.length, 8U);
    EXPECT_EQ(reply->pieces, 0U);
    EXPECT_EQ(reply->firstLength, 0U);
}

// Each size meets each other one before and behind it, in one stream, cut at every kind of place.
TEST_F(AConnection, AnswersPipelinedFramesOfMixedSizesInOrder) {
    const std::size_t sizes[] = {0, 1, 7, 8, 24, 100, 12360, 16359, 16360, 16361, 40000, 0, 0, 0, 3};
    std::vector<std::string> payloads;
    std::string stream;
    for (const std::size_t first : sizes) {
        for (const std::size_t second : sizes) {
            payloads.push_back(Pattern(first));
            payloads.push_back(Pattern(second));
        }
    }
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        stream += Frame(i % 2 == 0 ? ECHO : RETURN_MESSAGE, payloads[i], static_cast<std::uint32_t>(i));
    }
    TestClient client;
    std::thread writer([&] { EXPECT_TRUE(client.Sends(stream)); });
    for (std::size_t i = 0; i < payloads.size(); ++i) {
        const std::optional<Reply> reply = client.Receives();
        if (!reply || reply->header.sequence != i || reply->payload != payloads[i]) {
            ADD_FAILURE() << "reply " << i;
            break;
        }
    }
    writer.join();
    EXPECT_EQ(m_misaligned, 0);
}

TEST_F(AConnection, ServesAThousandShortFramesOfOneWrite) {
    std::string stream;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        stream += Frame(ECHO, Bytes(i), i);
    }
    TestClient client;
    ASSERT_TRUE(client.Sends(stream));
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const std::optional<Reply> reply = client.Receives();
        ASSERT_TRUE(reply && reply->header.sequence == i && reply->payload == Bytes(i)) << i;
    }
    EXPECT_EQ(m_misaligned, 0);
}

TEST_F(AConnection, SendsMorePiecesThanOneCallTakes) {
    for (const std::uint32_t count : {7U, 8U, 1023U, 1024U, 5000U}) {
        const std::optional<Reply> reply = TestClient().Asks(GIVE_PIECES, Bytes(count));
        ASSERT_TRUE(reply) << count;
        EXPECT_EQ(reply->pieces, count);
        EXPECT_EQ(reply->firstLength, 1U);
        ASSERT_EQ(reply->payload.size(), count);
        EXPECT_EQ(reply->payload.substr(0, 3), "abc");
        EXPECT_EQ(reply->payload.back(), 'a' + static_cast<char>((count - 1) % 26));
    }
}

TEST_F(AConnection, TakesAndGivesTheLargestPayload) {
    const std::string payload = Pattern(16 * MEBIBYTE);
    TestClient client;
    const std::optional<Reply> reply = client.Asks(ECHO, payload);
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->payload == payload);
}

TEST_F(AConnection, DeliversReplyBitAndKindAsTheyCome) {
    std::string frame = Frame(ECHO | 0x80, "x");
    frame[2] = 9;
    TestClient client;
    ASSERT_TRUE(client.Sends(frame));
    const std::optional<Reply> reply = client.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->payload, "x");
    EXPECT_EQ(reply->header.kind, 0);
}

TEST_F(AConnection, IsPausedWhenItsClientDoesNotReadWhileOthersAreServed) {
    const std::string request = Frame(GIVE, Bytes(64U << 10) + std::string(12000, ' '));
    TestClient slow;
    TestClient other;
    int sent = 0;
    int rounds = 0;
    // Until the socket has been full during ten turns of the loop: nobody reads from it.
    for (int full = 0; full < 10;) {
        const std::size_t taken = slow.SendsWithoutWaiting(request);
        if (taken == 0) {
            ++full;
            ++rounds;
            ASSERT_TRUE(other.Asks(ECHO, "served"));
            continue;
        }
        full = 0;
        ++sent;
        ASSERT_TRUE(slow.Sends(request.substr(taken)));
        ASSERT_LT(sent, 1000);
    }
    const int served = m_served - rounds;
    EXPECT_GE(served, 16);     // a MiB of replies
    EXPECT_LE(served, 16 + 8); // and what the socket took
    EXPECT_LT(served, sent);
    for (int i = 0; i < sent; ++i) {
        const std::optional<Reply> reply = slow.Receives();
        ASSERT_TRUE(reply && reply->payload.size() == 64U << 10) << i;
    }
    EXPECT_TRUE(Eventually([this] { return m_writable > 0; }));
    EXPECT_TRUE(slow.Asks(ECHO, "again"));
}

// Short replies are copied while they wait, and replies that refer to their request are not.
TEST_F(AConnection, KeepsTheOrderOfWaitingRepliesOfAllKinds) {
    TestClient client;
    std::string stream;
    const std::uint8_t methods[] = {ECHO, GIVE, RETURN_MESSAGE, GIVE_PIECES};
    for (std::uint32_t i = 0; i < 400; ++i) {
        stream +=
            Frame(methods[i % 4], Bytes(i % 8 < 4 ? 10 : 3000) + std::string(i % 16 < 8 ? 0 : 2000, 'p'), i);
    }
    ASSERT_TRUE(client.Sends(stream));
    for (std::uint32_t i = 0; i < 400; ++i) {
        const std::optional<Reply> reply = client.Receives();
        ASSERT_TRUE(reply && reply->header.sequence == i) << i;
        const std::size_t length = i % 2 == 0 ? (i % 16 < 8 ? 4U : 2004U) : (i % 8 < 4 ? 10U : 3000U);
        ASSERT_EQ(reply->payload.size(), length) << i;
    }
}

TEST_F(AConnection, ThatIsHalfClosedStillGetsItsReplies) {
    TestClient client;
    for (std::uint32_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(client.Sends(Frame(GIVE, Bytes(300'000), i)));
    }
    ASSERT_TRUE(client.Sends(Frame(ECHO, "cut off").substr(0, 28)));
    client.ShutDownWriting();
    for (std::uint32_t i = 0; i < 5; ++i) {
        const std::optional<Reply> reply = client.Receives();
        ASSERT_TRUE(reply && reply->header.sequence == i && reply->payload.size() == 300'000);
    }
    EXPECT_TRUE(client.MeetsEnd());
    EXPECT_TRUE(HasClosed(1));
}

TEST_F(AConnection, WhosePeerIsGoneBeforeTheReplyIsClosedAfterTheCallback) {
    {
        TestClient client;
        ASSERT_TRUE(client.Sends(Frame(HOLD) + Frame(ECHO, "behind it")));
        ASSERT_TRUE(Holds());
    }
    LetsGo();
    EXPECT_TRUE(HasClosed(1));
    EXPECT_EQ(m_closedInsideMessage, 0);
    EXPECT_EQ(m_closedWithoutDescriptor, 0);
    EXPECT_TRUE(TestClient().Asks(ECHO, "others go on"));
}

TEST_F(AConnection, WhosePeerIsGoneWithRepliesWaitingIsClosed) {
    {
        TestClient client;
        ASSERT_TRUE(client.Sends(Frame(GIVE, Bytes(4 * MEBIBYTE)) + Frame(GIVE, Bytes(4 * MEBIBYTE))));
        ASSERT_TRUE(Eventually([this] { return m_served > 0; }));
    }
    EXPECT_TRUE(HasClosed(1));
    EXPECT_TRUE(TestClient().Asks(ECHO, "others go on"));
}

// What many clients hold together is bounded: whoever goes beyond it is closed, and others are served.
class ManyClients : public AConnection {
protected:
    static constexpr int COUNT = 12; // of up to 16 MiB each; a loop holds 128 MiB

    void ExpectSomeClosedAndOthersServed(const char* line) {
        EXPECT_TRUE(Eventually([&] { return m_log.Count(line) > 0 && m_closed > 0; }));
        EXPECT_LE(m_closed, COUNT - 7);
        EXPECT_TRUE(TestClient().Asks(ECHO, "served"));
        m_clients.clear();
        EXPECT_TRUE(HasClosed(COUNT + 1));
        EXPECT_TRUE(TestClient().Asks(ECHO, std::string(16 * MEBIBYTE, 'w'))); // all is given back
    }

    std::vector<TestClient> m_clients{COUNT};
};

TEST_F(ManyClients, CannotHoldUnfinishedFramesWithoutBound) {
    const std::string part = Frame(ECHO, std::string(16 * MEBIBYTE, 'p')).substr(0, 15 * MEBIBYTE);
    for (TestClient& client : m_clients) {
        client.Sends(part);
    }
    ExpectSomeClosedAndOthersServed("no memory for a frame");
}

TEST_F(ManyClients, CannotHoldWaitingRepliesWithoutBound) {
    for (TestClient& client : m_clients) {
        client.Sends(Frame(GIVE, Bytes(16 * MEBIBYTE)));
    }
    ExpectSomeClosedAndOthersServed("no room for a reply");
}

TEST_F(AConnection, SurvivesAServiceThatThrowsAfterItsReply) {
    TestClient client;
    ASSERT_TRUE(client.Asks(ANSWER_AND_THROW));
    EXPECT_TRUE(client.Asks(ECHO, "same connection"));
    EXPECT_EQ(m_log.Count("thrown after the reply"), 1U);
}

TEST_F(AConnection, IsClosedWhenAServiceThrowsInsteadOfAnswering) {
    TestClient client;
    ASSERT_TRUE(client.Sends(Frame(THROW)));
    EXPECT_TRUE(client.MeetsEnd());
    EXPECT_EQ(m_log.Count("thrown by the service"), 1U);
    EXPECT_TRUE(TestClient().Asks(ECHO, "others go on"));
}

TEST_F(AConnection, TellsOpenedAndClosedOnceEach) {
    {
        TestClient client;
        ASSERT_TRUE(client.Asks(ECHO));
        EXPECT_EQ(m_opened, 1);
        EXPECT_EQ(m_closed, 0);
    }
    EXPECT_TRUE(HasClosed(1));
    EXPECT_EQ(m_closedWithoutDescriptor, 0);
}

struct BadFrame {
    const char* name;
    std::uint16_t magic;
    std::uint32_t length;
};

void PrintTo(const BadFrame& frame, std::ostream* out) {
    *out << frame.name;
}

class ABadFrame : public AServer, public ::testing::WithParamInterface<BadFrame> {
protected:
    ABadFrame() { Runs(); }
};

TEST_P(ABadFrame, ClosesItsConnectionWithOneLineAndNoOther) {
    TestClient good;
    ASSERT_TRUE(good.Asks(ECHO, "before"));
    const tern_header header{GetParam().magic, 0, ECHO, 1, 0, 0, GetParam().length};
    TestClient bad;
    const std::string frame(reinterpret_cast<const char*>(&header), sizeof header);
    ASSERT_TRUE(bad.Sends(Frame(ECHO, "in front", 5) + frame));
    const std::optional<Reply> reply = bad.Receives();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->payload, "in front");
    EXPECT_TRUE(bad.MeetsEnd());
    EXPECT_TRUE(HasClosed(1));
    EXPECT_TRUE(good.Asks(ECHO, "after"));
    EXPECT_EQ(m_log.All().size(), 1U);
    EXPECT_EQ(m_log.Count("bad frame"), 1U);
}

INSTANTIATE_TEST_SUITE_P(Table, ABadFrame,
                         ::testing::Values(BadFrame{"WrongMagic", 0x544E, 8}, BadFrame{"NoLength", 0x4E54, 0},
                                           BadFrame{"LengthBelowRecord", 0x4E54, 7},
                                           BadFrame{"LengthAboveLargest", 0x4E54, (16U << 20) + 9},
                                           BadFrame{"LengthThatWraps", 0x4E54, 0xFFFFFFF8}),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace PlatformTest
