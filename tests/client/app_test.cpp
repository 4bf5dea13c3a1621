#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "app.h"
#include "support/root_directory.h"
#include "support/scripted_peer.h"

namespace appcfg::cli {
namespace {

using Support::FragmentPayload;
using Support::Reply;
using Support::ReplyTo;
using Support::RootDirectory;
using Support::ScriptedPeer;
using Support::ValuesPayload;
using testing::HasSubstr;
using Words = std::vector<std::string>;

// Answers every get alike, and all else with success, but for the item "gone".
std::string Served(const Reply& request) {
    const std::string value = "\x1B[1m\x7F\n\xC2\x9B \x9B \xE0\x82\x9B K\xC3\xBC \xF0\x9F\x98\x80";
    if (std::string(request.payload.c_str() + 32) == "gone") {
        return ReplyTo(request, 404);
    }
    if (request.header.method != 2) {
        return ReplyTo(request, 200);
    }
    return ReplyTo(request, 200,
                   request.header.uri == 1 ? ValuesPayload({value}) : FragmentPayload("<all/>"));
}

class TheCommandLine : public testing::Test {
protected:
    ExitStatus Run(const Words& words, const std::string& input = {}, bool outTerminal = false) {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        const ExitStatus status = RunApp(words, {in, out, err, false, outTerminal});
        m_out = out.str();
        m_err = err.str();
        return status;
    }

    std::string WriteItem(const std::string& name = "net") const {
        return m_root.Writes(name + ".json", R"({"handle": "app/)" + name +
                                                 R"(", "storage": "json", "path": "/p", "default": "/d"})");
    }

    RootDirectory m_root;
    std::string m_out;
    std::string m_err;
};

class TheCommandLineAtAService : public TheCommandLine {
protected:
    // The content of the last request as text, from an offset to its NUL.
    std::string Sent(size_t offset) const { return m_service.Requests().back().payload.c_str() + offset; }

    ScriptedPeer m_service{m_root.Of("storage.paas.orb"), Served};
};

TEST_F(TheCommandLineAtAService, ShowsATerminalNoControlCharacters) {
    EXPECT_EQ(Run({"get", "app/net", "k"}, "", true), EXIT_DONE);
    EXPECT_EQ(m_out, R"(\x1b[1m\x7f\x0a\xc2\x9b \x9b \xe0\x82\x9b K)"
                     "\xC3\xBC \xF0\x9F\x98\x80\n");
    EXPECT_EQ(Run({"get", "app/net", "k", "--json"}, "", true), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr(R"("\u001b[1m\u007f\n\u009b \ufffd )"));
    EXPECT_EQ(Run({"get", "app/net", "k", "--json"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("\xC2\x9B \xEF\xBF\xBD "));
    EXPECT_EQ(Run({"get", "app/net", "k"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("\x1B[1m\x7F\n\xC2\x9B \x9B"));
}

// Words that the parser has a use of its own for reach the service as they are.
TEST_F(TheCommandLineAtAService, SendsWordsAndInputAsTheyAre) {
    EXPECT_EQ(Run({"set", "app/net", "[0]=[1]", "k=a=b", "r[@id=x].l=1", "r[@id='x]=y'][@n]=[@a=b]",
                   "[@v]=", "a[b=c"}),
              EXIT_DONE);
    EXPECT_EQ(Sent(72), "[0]|[1],k|a=b,r[@id=x].l|1,r[@id='x]=y'][@n]|[@a=b],[@v]|,a[b|c");
    EXPECT_EQ(Run({"raw", "app/net", "set", "k"}, "from input\n"), EXIT_DONE);
    EXPECT_EQ(Sent(72) + Sent(204), "kfrom input\n");
    EXPECT_EQ(Run({"raw", "app/net", "set", "k"}, std::string((16U << 20) + 1, 'x')), EXIT_USAGE);
}

TEST_F(TheCommandLineAtAService, CreatesWhatAnItemFileSays) {
    const std::string head = R"({"handle": "app/net/3", "path": "/p", "storage": )";
    const std::pair<std::string, std::vector<int>> files[] = {
        {R"("ini", "save": "timing", "backupStrategy": "none"})", {0, 3, 0}},
        {R"("xml", "save": "delay", "backupStrategy": "timing"})", {1, 2, 3}},
        {R"("json", "save": "none", "backupStrategy": "delay"})", {3, 0, 2}},
        {R"("json"})", {3, 1, 1}},
    };
    for (const auto& [rest, numbers] : files) {
        EXPECT_EQ(Run({"shell", m_root.Writes("item", head + rest)}), EXIT_DONE);
        const std::string record = m_service.Requests().back().payload;
        EXPECT_EQ((std::vector<int>{record[72], record[80], record[84]}), numbers) << rest;
        EXPECT_EQ(Sent(88) + Sent(344) + Sent(600), "/p");
    }
}

TEST_F(TheCommandLineAtAService, EndsAShellWithTheWorstOfItsResults) {
    const std::string item = WriteItem();
    EXPECT_EQ(Run({"shell", item}, "get k\n"), EXIT_DONE);
    EXPECT_EQ(Run({"shell", item}, "use app/gone\nget k\nuse app/net\nget k\n"), EXIT_REFUSED);
    EXPECT_EQ(Run({"shell", item}, "frobnicate\nget k\n"), EXIT_USAGE);
    EXPECT_EQ(Run({"shell", item}, "frobnicate\nuse app/gone\nget k\nget 'a\n"), EXIT_REFUSED);
    EXPECT_EQ(Run({"shell", item}, "raw set k\nget --help\nhelp\n"), EXIT_USAGE);
    EXPECT_EQ(Run({"shell", m_root.Writes("bad", "{")}), EXIT_USAGE);
    EXPECT_EQ(Run({"shell", WriteItem("gone")}, "echo not reached\n"), EXIT_REFUSED);
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(Run({"--help"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("Exit status: 0 done"));
}

TEST_F(TheCommandLineAtAService, FailsWhenItsOutputIsLost) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(RunApp({"get", "app/net", "a"}, {in, out, err, false}), EXIT_REFUSED);
    EXPECT_THAT(err.str(), HasSubstr("cannot write"));
}

TEST_F(TheCommandLineAtAService, PrintsOneJsonDocumentALineInAShell) {
    EXPECT_EQ(Run({"--json", "shell", WriteItem()}, "items\nset a=2\nraw get\necho x\n"), EXIT_DONE);
    EXPECT_EQ(m_out, "{\"done\":\"created app/net/0\"}\n"
                     "[{\"handle\":\"app/net/0\",\"storage\":\"json\",\"path\":\"/p\",\"gone\":false}]\n"
                     "{\"done\":\"set 1 value\"}\n\"<all/>\"\n\"x\"\n");
}

TEST_F(TheCommandLine, EndsAShellThatLosesItsConnection) {
    ScriptedPeer service(m_root.Of("storage.paas.orb"), [](const Reply& request) {
        return request.header.uri == 0 ? ReplyTo(request, 200) : ""; // hangs up at the first get
    });
    EXPECT_EQ(Run({"shell", WriteItem()}, "get a\necho not reached\n"), EXIT_UNREACHABLE);
    EXPECT_EQ(m_out, "created app/net/0\n");
}

} // namespace
} // namespace appcfg::cli
