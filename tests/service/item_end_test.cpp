#include "service_fixture.h"

namespace ServiceTest {

using ADelete = AService;
using AClose = AService;
using ARestore = AService;

constexpr char SETTINGS[] = R"({"a":"1"})";

std::string Saved(const std::string& value) {
    return "{\n  \"a\": \"" + value + "\"\n}";
}

TEST_F(ADelete, StopsItsStrategiesBeforeItForgetsTheItem) {
    HasItem(SETTINGS);
    Client other; // any connection may
    EXPECT_EQ(other.Deletes(), 200);
    EXPECT_THAT(m_log.Of(),
                ElementsAre("1 stop save strategy ...", "1 stop save strategy done.",
                            "1 stop backup strategy ...", "1 stop backup strategy done.",
                            "1 delete app cfg mgmt item... ", "1 ------------cfg info------------",
                            "1 config hndl:app1.net.0", "1 --------------------------------",
                            "1 delete app cfg mgmt item done. "));
    EXPECT_EQ(m_client.Deletes(), 404);
}

TEST_F(ADelete, SavesWhatWasAcknowledged) {
    for (int i = 0; i < 50; ++i) {
        HasItem(SETTINGS);
        const std::string value = std::to_string(i);
        EXPECT_EQ(m_client.Sets("a|" + value), 200);
        EXPECT_EQ(m_client.Deletes(), 200);
        EXPECT_EQ(Text("cfg"), Saved(value));
        EXPECT_EQ(Text("bak"), Saved(value));
    }
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
    m_log.Clear();
    other.Close();
    EXPECT_TRUE(Knows({"app1.net.0"}));
    EXPECT_TRUE(Eventually([&] { return m_log.Count("item done") == 3; }));
    const std::string done = "1 delete app cfg mgmt item done. ";
    EXPECT_THAT(m_log.Of(), ElementsAre("1 delete connect fd[N] app cfg mgmt item[app2.a.0]... ", done,
                                        "1 delete connect fd[N] app cfg mgmt item[app2.m.0]... ", done,
                                        "1 delete connect fd[N] app cfg mgmt item[app2.z.0]... ", done));
    EXPECT_EQ(m_client.Value("a"), "1");
}

TEST_F(AClose, OfAConnectionWithoutItemsSaysNothing) {
    HasItem(SETTINGS);
    {
        Client other;
        EXPECT_EQ(other.Value("a"), "1");
    }
    Stops(); // by now both have closed
    EXPECT_EQ(m_log.Of().size(), 2U);
    EXPECT_EQ(m_log.Count("app1.net.0"), 1U);
}

TEST_F(AClose, LeavesWhatWasAcknowledgedOnDisk) {
    for (int i = 0; i < 200; ++i) {
        Writes("cfg", SETTINGS);
        const std::string value = std::to_string(i);
        Client client;
        ASSERT_EQ(client.Creates(Item()), 200);
        ASSERT_EQ(client.Sets("a|" + value), 200);
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

TEST_F(ARestore, BringsTheDefaultBackEverywhere) {
    Writes("def", R"({"a":"def"})");
    HasItem(SETTINGS);
    EXPECT_EQ(m_client.Sets("a|2"), 200);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("a"), "def");
    EXPECT_EQ(Text("cfg"), R"({"a":"def"})"); // the copy itself: restoring is no change
    EXPECT_EQ(Text("bak"), R"({"a":"def"})");
    EXPECT_THAT(m_log.Of({"default"}), ElementsAre("1 copy default[def] to cfg[cfg] done.",
                                                   "1 copy default[def] to cfg[bak] done."));
    EXPECT_EQ(m_client.SetsRaw("a", "3"), 200); // both strategies run again
    EXPECT_EQ(Text("cfg"), Saved("3"));
    EXPECT_EQ(Text("bak"), Saved("3"));
}

TEST_F(ARestore, WithoutABackupPathLeavesOtherFilesAlone) {
    Writes("cfg", SETTINGS);
    Writes("bak", SETTINGS);
    Writes("def", R"({"a":"def"})");
    EXPECT_EQ(m_client.Creates(Item("cfg", "")), 200);
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("a"), "def");
    EXPECT_EQ(Text("bak"), SETTINGS);
}

TEST_F(ARestore, WithoutADefaultReloadsTheFile) {
    HasItem(SETTINGS);
    Writes("cfg", R"({"a":"edited"})");
    EXPECT_EQ(m_client.Restores(), 200);
    EXPECT_EQ(m_client.Value("a"), "edited");
    EXPECT_EQ(m_log.Of({"default"}), (Lines{"1 default[def] not exists.", "1 default[def] not exists."}));
}

struct FailingRestore {
    const char* claim;
    const char* def;
    const char* cfgAfter;
};

TEST_F(ARestore, ThatFailsInsideGoesOnAndAnswersSuccess) {
    const FailingRestore cases[] = {{"broken", "{", "{"}, {"no object", "[]", "[]"}, {"empty", "", ""}};
    for (const FailingRestore& entry : cases) {
        SCOPED_TRACE(entry.claim);
        Writes("def", entry.def);
        HasItem(SETTINGS);
        EXPECT_EQ(m_client.Restores(), 200);
        EXPECT_EQ(m_log.Errors().size(), 1U);
        EXPECT_EQ(Text("cfg"), entry.cfgAfter);
        EXPECT_EQ(m_client.Value("a"), "1");
        EXPECT_EQ(m_client.SetsRaw("a", "2"), 200);
        EXPECT_EQ(Text("cfg"), Saved("2"));
        EXPECT_EQ(Text("bak"), Saved("2"));
        EXPECT_EQ(m_client.Deletes(), 200);
    }
}

} // namespace ServiceTest
