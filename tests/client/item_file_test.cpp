#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "exit_status.h"
#include "item_file.h"
#include "platform/root_directory.h"
#include "split_words.h"

namespace appcfg::cli {
namespace {

using namespace SystemServer;
using testing::HasSubstr;

const std::string KEY_DIGITS = std::string(62, '0') + "1f" + std::string(30, '0') + "Ee";

class AnItemFile : public testing::Test {
protected:
    ItemDescription Read(const std::string& text) const {
        return ReadItemFile(m_root.Writes("i.json", text));
    }

    std::string WriteKey(const std::string& text, mode_t mode = 0600) const {
        std::string path = m_root.Writes("k", text);
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
        return path;
    }

    // The message with which the action is refused.
    template <class Action>
    static std::string Refusal(Action action) {
        try {
            action();
        } catch (const UsageError& error) {
            return error.what();
        }
        return "it was accepted";
    }

    PlatformTest::RootDirectory m_root;
};

TEST_F(AnItemFile, DescribesAnItemInFull) {
    WriteKey(KEY_DIGITS);
    const ItemDescription item = Read(R"({"handle": "app/net/3", "storage": "ini", "path": "/p",
        "backup": "/b", "default": "/d", "save": "timing", "backupStrategy": "none",
        "encryption": {"keyFile": "k"}})");
    EXPECT_EQ(item.handle, Handle("app", "net", 3));
    EXPECT_EQ(item.storage, ConfigStorageType::INI);
    EXPECT_EQ(item.path, "/p");
    EXPECT_EQ(item.backupPath, "/b");
    EXPECT_EQ(item.defaultPath, "/d");
    EXPECT_EQ(item.saveStrategy, ConfigSaveStrategy::TIMING);
    EXPECT_EQ(item.backupStrategy, ConfigBackupStrategy::NONE);
    ASSERT_TRUE(item.encryption);
    EXPECT_EQ(item.encryption->key[31], 0x1F);
    EXPECT_EQ(item.encryption->iv[15], 0xEE);
}

TEST_F(AnItemFile, NeedsOnlyHandleStorageAndPath) {
    const ItemDescription item = Read(R"({"handle": "app/net", "storage": "xml", "path": "/p"})");
    EXPECT_EQ(item.storage, ConfigStorageType::XML);
    EXPECT_EQ(item.backupPath + item.defaultPath, "");
    EXPECT_EQ(item.saveStrategy, ConfigSaveStrategy::INSTANT);
    EXPECT_EQ(item.backupStrategy, ConfigBackupStrategy::INSTANT);
    EXPECT_FALSE(item.encryption);
}

TEST_F(AnItemFile, IsRefusedWithTheReason) {
    const std::string good = R"("handle": "a/b", "storage": "json", "path": "/p")";
    const std::pair<std::string, std::string> bad[] = {
        {"", "parse error"},
        {"{" + good, "parse error"},
        {"[]", "is not an object"},
        {"7", "is not an object"},
        {R"({"storage": "json", "path": "/p"})", "\"handle\" is missing"},
        {R"({"handle": "a/b", "path": "/p"})", "\"storage\" is missing"},
        {R"({"handle": "a/b", "storage": "json"})", "\"path\" is missing"},
        {R"({"handle": "ab", "storage": "json", "path": "/p"})", "'ab' is no handle"},
        {R"({"handle": "a/b", "storage": "JSON", "path": "/p"})", "not one of json, xml, ini"},
        {R"({"handle": "a/b", "storage": 3, "path": "/p"})", "\"storage\" is not a string"},
        {"{" + good + R"(, "save": "soon"})", "not one of instant, delay, timing, none"},
        {"{" + good + R"(, "saveStrategy": "delay"})", "unknown member \"saveStrategy\""},
        {"{" + good + R"(, "path": "/q"})", "member \"path\" is given twice"},
        {"{" + good + R"(, "backup": null})", "\"backup\" is not a string"},
        {"{" + good + R"(, "encryption": "k"})", "\"encryption\": is not an object"},
        {"{" + good + R"(, "encryption": {"key": "00"}})", "unknown member \"key\""},
        {"{" + good + R"(, "encryption": {}})", "\"keyFile\" is missing"},
        {"{" + good + R"(, "encryption": {"keyFile": "absent"}})", "/absent: No such file"},
    };
    for (const auto& [text, why] : bad) {
        const std::string message = Refusal([&, file = text] { Read(file); });
        EXPECT_THAT(message, HasSubstr(why)) << text;
        EXPECT_THAT(message, HasSubstr(m_root.Of(""))) << "the file is named";
    }
    EXPECT_THAT(Refusal([&] { ReadItemFile(m_root.Of("")); }), HasSubstr("not a regular file"));
    EXPECT_THAT(Refusal([&] { Read(std::string(70000, ' ')); }), HasSubstr("larger than"));
}

TEST_F(AnItemFile, TakesAKeyOfExactlyItsDigitsWithBlanksBetween) {
    const std::string spread = KEY_DIGITS.substr(0, 64) + "\n \t" + KEY_DIGITS.substr(64) + "\r\n";
    EXPECT_EQ(ReadKeyFile(WriteKey(spread)).iv[15], 0xEE);
    const std::string bad[] = {"", "x" + KEY_DIGITS.substr(1), KEY_DIGITS + "0", KEY_DIGITS.substr(1)};
    for (const std::string& text : bad) {
        const std::string message = Refusal([&] { ReadKeyFile(WriteKey(text)); });
        EXPECT_THAT(message, HasSubstr("96 hexadecimal digits")) << text;
        EXPECT_THAT(message, testing::Not(HasSubstr("1f0"))) << "a message shows no key";
    }
}

TEST_F(AnItemFile, TakesNoKeyThatOthersCanRead) {
    for (const mode_t mode : {0640U, 0604U, 0620U, 0602U, 0610U}) {
        EXPECT_THAT(Refusal([&] { ReadKeyFile(WriteKey(KEY_DIGITS, mode)); }), HasSubstr("chmod 600"))
            << mode;
    }
    EXPECT_NO_THROW(ReadKeyFile(WriteKey(KEY_DIGITS, 0400)));
}

TEST(ALineOfTheShell, IsSplitIntoWords) {
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"", {}},
        {" \t\r", {}},
        {"  # get a", {}},
        {"get a#b #c", {"get", "a#b", "#c"}},
        {" get\ta  b ", {"get", "a", "b"}},
        {"set a='x y'z", {"set", "a=x yz"}},
        {"raw get ''", {"raw", "get", ""}},
        {R"(echo "a \"b\" 'c' \\")", {"echo", R"(a "b" 'c' \)"}},
        {R"(echo 'a\b' a\ b \' x\)", {"echo", R"(a\b)", "a b", "'", "x\\"}},
    };
    for (const auto& [line, words] : rows) {
        EXPECT_EQ(SplitWords(line), words) << line;
    }
    for (const char* line : {"echo 'a", "echo \"a\\\"", "'"}) {
        EXPECT_THROW(SplitWords(line), UsageError) << line;
    }
}

} // namespace
} // namespace appcfg::cli
