// What clients are told when the framework has nothing left for a reply.
#include "app_cfg_reply.h"
#include "support/service_calls.h"
#include "support/service_fixture.h"

namespace ServiceTest {

struct ReplyFault {
    Call call;
    int after;
    bool isRaw;
    uint16_t status;
};

using AReply = AService;

TEST_F(AReply, ThatCannotBeBuiltIsRefused) {
    const ReplyFault faults[] = {
        {Call::CONTENT, 0, false, 400}, {Call::CONTENT, 0, true, 404},      {Call::POOL, 0, false, 400},
        {Call::POOL, 0, true, 500},     {Call::COPY, 0, false, 400},        {Call::COPY, 0, true, 500},
        {Call::COPY, 1, true, 500},     {Call::CONTENT_ADD, 0, false, 500}, {Call::CONTENT_ADD, 0, true, 500},
    };
    HasItem(R"({"key": "abc"})");
    for (const ReplyFault& fault : faults) {
        SCOPED_TRACE(static_cast<int>(fault.call));
        m_log.Clear();
        const Injection injection({fault.call, fault.after + 1});
        const Reply reply = fault.isRaw ? m_client.GetsRaw("key") : m_client.Gets("key");
        EXPECT_EQ(reply.header.status, fault.status);
        EXPECT_EQ(reply.payload, "");
        EXPECT_EQ(m_log.Errors().size(), 1U);
        EXPECT_EQ(m_client.Value("key"), "abc");
    }
}

TEST_F(AReply, EndsAtTheLongestPayload) {
    tern_message* const msg = tern_message_new(0);
    const kestrel_connection conn{7};
    const std::string half(8 << 20, 'x');
    ReplyMsgInfo reply{400, nullptr, 0};
    BuildDataReply(msg, &conn, {half, half.substr(11)}, reply);
    EXPECT_EQ(reply.status, 400);
    EXPECT_THAT(m_log.Errors(), ElementsAre("3 [connect fd[N] : reply of 16777217 bytes is too long."));
    BuildDataReply(msg, &conn, {half, half.substr(12)}, reply);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.contentLen, 16U << 20);
    tern_message_put(msg);
}

} // namespace ServiceTest
