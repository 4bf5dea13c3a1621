#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "appcfg/connection.h"
#include "document.h"
#include "fake_service.h"
#include "scratch_root.h"

namespace appcfg {
namespace {

// What the page shows is what the library sends and understands.
TEST(TheProtocolPage, ShowsAnExchangeOfTheClientLibrary) {
    const test::Bytes request = test::BytesOfDump(test::BlockOf("protocol.md", "hex request"));
    test::Bytes reply = test::BytesOfDump(test::BlockOf("protocol.md", "hex reply"));
    const test::ScratchRoot root;
    const test::FakeService service(root.Path(), [&](const test::Bytes&) { return reply; });
    Connection connection;
    EXPECT_THAT(connection.Open(Handle("app", "net")).GetMany({"hostname", "mtu"}),
                testing::ElementsAre("device", "1500"));
    EXPECT_EQ(service.Requests().at(0), request);
}

} // namespace
} // namespace appcfg
