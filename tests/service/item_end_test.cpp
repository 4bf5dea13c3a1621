#include "support/service_fixture.h"

namespace ServiceTest {

using AClose = AService;

constexpr char SETTINGS[] = R"({"a":"1"})";

std::string Saved(const std::string& value) {
    return "{\n  \"a\": \"" + value + "\"\n}";
}

TEST_F(AClose, EndsEveryItemOfItsConnectionAndNoOther) {
    HasItem(SETTINGS);
    Client other;
    for (const char* name : {"z", "a", "m"}) {
        other.m_handle = Handle("app2", name);
        AppCfgCreateReq item = Item("cfg2", "bak2");
        Writes("cfg2", SETTINGS);
        item.hndl = other.m_handle;
        EXPECT_EQ(other.Creates(item), 200);
    }
    other.m_handle = m_client.m_handle;
    EXPECT_EQ(other.Value("a"), "1"); // using an item does not make it one's own
    other.Close();
    EXPECT_TRUE(Knows({"app1.net.0"}));
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AClose, OrADeleteLeavesWhatWasAcknowledgedOnDisk) {
    for (int i = 0; i < 200; ++i) {
        Writes("cfg", SETTINGS);
        const std::string value = std::to_string(i);
        Client client;
        ASSERT_EQ(client.Creates(Item()), 200);
        ASSERT_EQ(client.Sets("a|" + value), 200);
        ASSERT_TRUE(i % 4 != 0 || m_client.Deletes() == 200) << "any connection may";
        client.Close();
        ASSERT_TRUE(Knows({}));
        ASSERT_EQ(Text("cfg"), Saved(value));
        ASSERT_EQ(Text("bak"), Saved(value));
    }
}

// A reply that was not read yet counts as acknowledged: its set came before the stop.
TEST_F(AClose, AtTheEndOfTheLoopSavesToo) {
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Sets("a|last"), 200);
    Stops();
    EXPECT_EQ(Text("cfg"), Saved("last"));
    EXPECT_THAT(RegisteredKeys(), IsEmpty());
}

} // namespace ServiceTest
