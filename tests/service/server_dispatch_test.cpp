#include <set>

#include "service_fixture.h"

namespace ServiceTest {

using ADispatch = AService;
using AHandle = AService;

constexpr char SETTINGS[] = R"({"volume": 5})";

// Every combination but the eight that have a handler.
TEST_F(ADispatch, RefusesWhatItsTableLacks) {
    const std::set<std::pair<unsigned, unsigned>> served = {{0, 1}, {0, 4}, {1, 2}, {1, 3},
                                                            {2, 2}, {2, 3}, {3, 3}, {4, 3}};
    for (const unsigned uri : {0U, 1U, 2U, 3U, 4U, 5U, 0xFFFFU}) {
        for (const unsigned method : {0U, 1U, 2U, 3U, 4U, 5U, 127U}) {
            if (served.count({uri, method}) != 0) {
                continue;
            }
            const std::string u = std::to_string(uri);
            const std::string m = std::to_string(method);
            SCOPED_TRACE(u + "." + m);
            m_log.Clear();
            const Reply reply = m_client.Asks(static_cast<uint16_t>(uri), static_cast<uint8_t>(method),
                                              std::string(20000, 'x'), 77);
            EXPECT_EQ(reply.header.status, 400);
            EXPECT_EQ(reply.header.method, 0x80 | method);
            EXPECT_EQ(reply.header.uri, uri);
            EXPECT_EQ(reply.header.sequence, 77U);
            EXPECT_EQ(reply.payload, "");
            EXPECT_THAT(m_log.Of({}, 0), ElementsAre("0 receive uri: " + u + ",method: " + m,
                                                     uri > 4 ? "3 invalid uri[" + u + "] from connect fd[N]"
                                                     : method < 1 || method > 4
                                                         ? "3 invalid method[" + m + "] from connect fd[N]"
                                                         : "3 not support uri[" + u + "].method[" + m + "]"));
        }
    }
}

struct ShortRequest {
    uint16_t uri;
    uint8_t method;
    size_t size;
    uint16_t status;
};

// One byte less than each record, and nothing at all; raw get has a status of its own.
TEST_F(ADispatch, RefusesContentShorterThanTheRecord) {
    const ShortRequest requests[] = {{0, 1, 904, 400},   {0, 4, 72, 400},  {1, 2, 12360, 400},
                                     {1, 3, 12360, 400}, {2, 2, 204, 404}, {2, 3, 204, 400},
                                     {3, 3, 72, 400}};
    for (const ShortRequest& request : requests) {
        m_log.Clear();
        const std::string content(request.size - 1, 'x');
        EXPECT_EQ(m_client.Asks(request.uri, request.method, content).header.status, request.status);
        EXPECT_EQ(m_client.Asks(request.uri, request.method, "").header.status, request.status);
        EXPECT_THAT(m_log.Errors(),
                    ElementsAre("3 [connect fd[N] : invalid content len[" + std::to_string(request.size - 1) +
                                    "],required content len[" + std::to_string(request.size) + "]",
                                HasSubstr("3 [connect fd[N] : call tern_content fail.return code[")));
    }
}

TEST_F(ADispatch, AnswersASuccessWithTheRequestsSequenceAndMethod) {
    HasItem(SETTINGS);
    AppCfgDataReq request{m_client.m_handle, "volume"};
    const Reply reply = m_client.Asks(1, 0x80 | 2, BytesOf(request) + "surplus", 0xFFFFFFFF);
    EXPECT_EQ(reply.header.status, 200);
    EXPECT_EQ(reply.header.method, 0x82);
    EXPECT_EQ(reply.header.uri, 1);
    EXPECT_EQ(reply.header.sequence, 0xFFFFFFFFU);
    EXPECT_EQ(reply.payload, std::string("\1\0\0\0\1\0\0\0"
                                         "5",
                                         9));
}

TEST_F(ADispatch, ServesPipelinedRequestsInOrder) {
    HasItem(SETTINGS);
    AppCfgDataReq request{m_client.m_handle, "volume"};
    std::string frames;
    for (uint32_t i = 0; i < 200; ++i) {
        frames += i % 2 == 0 ? Frame(1, 2, BytesOf(request), i) : Frame(9, 9, "", i);
    }
    std::thread sender([&] { EXPECT_TRUE(m_client.Sends(frames)); });
    for (uint32_t i = 0; i < 200; ++i) {
        const Reply reply = m_client.Receives().value_or(Reply{});
        EXPECT_EQ(reply.header.sequence, i);
        EXPECT_EQ(reply.header.status, i % 2 == 0 ? 200 : 400);
    }
    sender.join();
}

struct HandleCase {
    AppCfgHndl handle;
    std::string key;
};

TEST_F(AHandle, BecomesTheItemsKey) {
    const std::string full(32, 'n');
    AppCfgHndl withReserved = Handle("app1", "net");
    withReserved.reserved = 9;
    AppCfgHndl afterNul = Handle("app1", "net", 1);
    afterNul.ownerName[10] = 'x';
    const HandleCase cases[] = {
        {Handle("app1", "net", 0), "app1.net.0"},
        {Handle("app1", "net", UINT32_MAX), "app1.net.4294967295"},
        {Handle("", "", 0), "..0"},
        {Handle("a.b", "c", 7), "a.b.c.7"},
        {Handle("a", "b.c", 7), "a.b.c.7"},
        {Handle(full, full, 2), full + "." + full + ".2"},
        {withReserved, "app1.net.0"},
        {afterNul, "app1.net.1"},
    };
    for (const HandleCase& entry : cases) {
        EXPECT_EQ(AppCfgMgmtServer::GetAppCfgKey(&entry.handle), entry.key);
    }
}

TEST_F(AHandle, OfNoItemIsNotFoundByAnyRequest) {
    HasItem(SETTINGS);
    m_client.m_handle = Handle("app1", "net", UINT32_MAX);
    EXPECT_EQ(m_client.Value("volume"), "status 404");
    EXPECT_EQ(m_client.Sets("volume|1"), 404);
    EXPECT_EQ(m_client.Raw("volume"), "status 404");
    EXPECT_EQ(m_client.SetsRaw("volume", "1"), 404);
    EXPECT_EQ(m_client.Restores(), 404);
    EXPECT_EQ(m_client.Deletes(), 404);
    EXPECT_EQ(m_log.Errors(), Lines(6, "3 [connect fd[N] : appCfgKey[app1.net.4294967295] not found."));
    EXPECT_EQ(RegisteredKeys(), Lines{"app1.net.0"});
}

TEST_F(AHandle, ThatSharesAKeyReachesTheSameItem) {
    m_client.m_handle = Handle("a.b", "c");
    HasItem(SETTINGS);
    Client other;
    other.m_handle = Handle("a", "b.c");
    EXPECT_EQ(other.Sets("volume|9"), 200);
    EXPECT_EQ(m_client.Value("volume"), "9");
}

} // namespace ServiceTest
