// What clients are told when the framework has nothing left for a reply.
#include "app_cfg_reply.h"
#include "faults.h"
#include "service_fixture.h"

namespace ServiceTest {

struct ReplyFault {
    Call call;
    int after;
    bool isRaw;
    uint16_t status;
    std::string line;
};

using AReply = AService;

TEST_F(AReply, ThatCannotBeBuiltIsRefused) {
    const std::string noContent = "3 [connect fd[N] : call tern_content fail.return code[7].";
    const ReplyFault faults[] = {
        {Call::CONTENT, 0, false, 400, noContent},
        {Call::CONTENT, 0, true, 404, noContent},
        {Call::POOL, 0, false, 400, "3 Failed to pcalloc buf len 11"},
        {Call::POOL, 0, true, 500, "3 Failed to pcalloc buf len 208"},
        {Call::COPY, 0, false, 400, "3 [connect fd[N] : call memcpy_s fail.return code[34]."},
        {Call::COPY, 0, true, 500, "3 Failed to memcpy query XML key"},
        {Call::COPY, 1, true, 500, "3 Failed to memcpy query key"},
        {Call::CONTENT_ADD, 0, false, 500, "3 [connect fd[N] : call tern_content_add fail."},
        {Call::CONTENT_ADD, 0, true, 500, "3 [connect fd[N] : call tern_content_add fail."},
    };
    HasItem(R"({"key": "abc"})");
    for (const ReplyFault& fault : faults) {
        SCOPED_TRACE(fault.line);
        m_log.Clear();
        const Failing failing(fault.call, fault.after);
        const Reply reply = fault.isRaw ? m_client.GetsRaw("key") : m_client.Gets("key");
        EXPECT_EQ(reply.header.status, fault.status);
        EXPECT_EQ(reply.payload, "");
        EXPECT_EQ(m_log.Errors(), Lines{fault.line});
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
