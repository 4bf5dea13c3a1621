#include <set>

#include "support/service_fixture.h"

namespace ServiceTest {

using ADispatch = AService;
using AHandle = AService;

// Every combination but the eight that have a handler.
TEST_F(ADispatch, RefusesWhatItsTableLacks) {
    const std::set<std::pair<unsigned, unsigned>> served = {{0, 1}, {0, 4}, {1, 2}, {1, 3},
                                                            {2, 2}, {2, 3}, {3, 3}, {4, 3}};
    for (const unsigned uri : {0U, 1U, 2U, 3U, 4U, 5U, 0xFFFFU}) {
        for (const unsigned method : {0U, 1U, 2U, 3U, 4U, 5U, 127U}) {
            if (served.count({uri, method}) != 0) {
                continue;
            }
            SCOPED_TRACE(std::to_string(uri) + "." + std::to_string(method));
            const Reply reply = m_client.Asks(static_cast<uint16_t>(uri), static_cast<uint8_t>(method),
                                              std::string(20000, 'x'), 77);
            EXPECT_EQ(reply.header.status, 400);
            EXPECT_EQ(reply.header.method, 0x80 | method);
            EXPECT_EQ(reply.header.uri, uri);
            EXPECT_EQ(reply.header.sequence, 77U);
            EXPECT_EQ(reply.payload, "");
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
        const std::string content(request.size - 1, 'x');
        EXPECT_EQ(m_client.Asks(request.uri, request.method, content).header.status, request.status);
        EXPECT_EQ(m_client.Asks(request.uri, request.method, "").header.status, request.status);
    }
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

} // namespace ServiceTest
