#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "app.h"
#include "support/root_directory.h"
#include "support/scripted_peer.h"

namespace appcfg::cli {
namespace {

using namespace Support;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

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
    ExitStatus Run(const std::vector<std::string>& words, const std::string& input = {},
                   bool onTerminal = false) {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        const ExitStatus status = RunApp(words, {in, out, err, false, onTerminal, onTerminal});
        m_out = out.str();
        m_err = err.str();
        return status;
    }

    std::string WriteItem(const std::string& name = "net") const {
        return m_root.Writes(name + ".json", R"({"handle": "app/)" + name +
                                                 R"(", "storage": "json", "path": "/p", "default": "/d"})");
    }
    // The content of the last request as text, from an offset to its NUL.
    std::string Sent(size_t offset) const { return m_service.Requests().back().payload.c_str() + offset; }

    RootDirectory m_root;
    ScriptedPeer m_service{m_root.Of("storage.paas.orb"), Served};
    std::string m_out;
    std::string m_err;
};

TEST_F(TheCommandLine, ShowsATerminalNoControlCharacters) {
    const struct {
        std::vector<std::string> words;
        const char* onTerminal;
        const char* inPipe;
    } rows[] = {
        {{"get", "app/net", "k"},
         "\\x1b[1m\\x7f\\x0a\\xc2\\x9b \\x9b \\xe0\\x82\\x9b K\xC3\xBC \xF0\x9F\x98\x80\n",
         "\x1B[1m\x7F\n\xC2\x9B \x9B"},
        {{"get", "app/net", "k", "--json"}, R"("\u001b[1m\u007f\n\u009b \ufffd )", "\xC2\x9B \xEF\xBF\xBD "},
        {{"get", "\x1B[1m\n", "k"}, "'\\x1b[1m\\x0a' is no handle", "'\x1B[1m\n' is no"},
        {{"rekey", "a/b", "--key-file", "/\x1B"}, ": /\\x1b: No such file", ": /\x1B: No such file"},
        {{"\x1B"}, "no command '\\x1b'", "no command '\x1B'"},
        {{"get", "a/b", "k", "--\x1B"}, "--\\x1b\nRun with", "--\x1B\nRun with"},
    };
    for (const auto& row : rows) {
        Run(row.words, "", true);
        EXPECT_THAT(m_out + m_err, HasSubstr(row.onTerminal));
        Run(row.words);
        EXPECT_THAT(m_out + m_err, HasSubstr(row.inPipe));
    }
}

TEST_F(TheCommandLine, ShowsAPersonColoursAndThatItWaits) {
    const TestClient silent(Listen(m_root.Of("storage.paas.orb")));
    std::stringstream out;
    const std::vector<std::string> words = {"--timeout", "1.3", "get", "app/net", "k"};
    EXPECT_EQ(RunApp(words, {out, out, out, false, true, true, true}), EXIT_UNREACHABLE);
    const std::string told = "waiting for the service ...";
    EXPECT_THAT(out.str(), HasSubstr(told + "\r" + std::string(told.size() + 1, ' ') +
                                     "\r\x1B[31mappcfg:\x1B[0m no reply"));
}

TEST_F(TheCommandLine, SendsInputAsItIs) {
    EXPECT_EQ(Run({"raw", "app/net", "set", "k"}, "from input\n"), EXIT_DONE);
    EXPECT_EQ(Sent(72) + Sent(204), "kfrom input\n");
    EXPECT_EQ(Run({"raw", "app/net", "set", "k"}, std::string((16U << 20) + 1, 'x')), EXIT_USAGE);
}

TEST_F(TheCommandLine, CreatesWhatAnItemFileSays) {
    const std::string head = R"({"handle": "app/net/3", "path": "/p", "storage": )";
    const std::pair<std::string, std::vector<int>> files[] = {
        {R"("ini", "save": "timing", "backupStrategy": "none"})", {3, 0, 3, 0}},
        {R"("xml", "save": "delay", "backupStrategy": "timing"})", {3, 1, 2, 3}},
        {R"("json", "save": "none", "backupStrategy": "delay"})", {3, 3, 0, 2}},
        {R"("json"})", {3, 3, 1, 1}},
    };
    for (const auto& [rest, numbers] : files) {
        EXPECT_EQ(Run({"shell", m_root.Writes("item", head + rest)}), EXIT_DONE);
        const std::string record = m_service.Requests().back().payload;
        EXPECT_EQ((std::vector<int>{record[64], record[72], record[80], record[84]}), numbers) << rest;
        EXPECT_EQ(Sent(88) + Sent(344) + Sent(600), "/p");
    }
}

TEST_F(TheCommandLine, EndsAShellWithTheWorstOfItsResults) {
    const std::string item = WriteItem();
    const std::tuple<std::string, const char*, ExitStatus> rows[] = {
        {item, "get k\n", EXIT_DONE},
        {item, "use app/gone\nget k\nuse app/net\nget k\n", EXIT_REFUSED},
        {item, "frobnicate\nget k\n", EXIT_USAGE},
        {item, "frobnicate\nuse app/gone\nget k\nget 'a\n", EXIT_REFUSED},
        {item, "raw set k\nget --help\nhelp\n", EXIT_USAGE},
        {m_root.Writes("bad", "{"), "echo not reached\n", EXIT_USAGE},
        {WriteItem("gone"), "echo not reached\n", EXIT_REFUSED},
    };
    for (const auto& [file, lines, status] : rows) {
        EXPECT_EQ(Run({"shell", file}, lines), status) << lines;
        EXPECT_EQ(m_out.find("not reached"), std::string::npos);
    }
    EXPECT_EQ(Run({"--help"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("Exit status: 0 done"));
    EXPECT_EQ(Run({"--man"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("\n.B raw HANDLE VERB [KEY] [DATA]\nprint or replace a"));
    EXPECT_EQ(Run({"status", "--json"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("\",\"milliseconds\":"));
}

TEST_F(TheCommandLine, FailsWhenItsOutputIsLost) {
    std::stringstream lost;
    std::ostringstream err;
    lost.setstate(std::ios::badbit);
    EXPECT_EQ(RunApp({"get", "app/net", "a"}, {lost, lost, err, false}), EXIT_REFUSED);
    EXPECT_THAT(err.str(), HasSubstr("cannot write"));
}

TEST_F(TheCommandLine, EndsAShellThatLosesItsConnection) {
    const ScriptedPeer service(m_root.Of("storage.paas.orb"), [](const Reply& request) {
        return request.header.uri == 0 ? ReplyTo(request, 200) : ""; // hangs up at the first get
    });
    EXPECT_EQ(Run({"shell", WriteItem()}, "get a\necho not reached\n"), EXIT_UNREACHABLE);
    EXPECT_EQ(m_out, "created app/net/0\n");
}

TEST_F(TheCommandLine, AsksAPersonForWhatAnItemFileLacks) {
    std::stringstream typed("json\n/p\n\n\ndelay\n");
    std::stringstream out;
    EXPECT_EQ(RunApp({"init", m_root.Of("i.json"), "--handle", "a/b"}, {typed, out, out, true}), EXIT_DONE);
    EXPECT_THAT(out.str(), HasSubstr("storage (format of the file: {json,xml,ini}): path (the file"));
    EXPECT_EQ(Run({"shell", m_root.Of("i.json")}), EXIT_DONE);
    EXPECT_EQ(m_service.Requests().back().payload[80], 2); // delay
}

TEST_F(TheCommandLine, KeepsAnEditedTextThatItCannotWrite) {
    for (const bool isChanged : {true, false}) {
        std::string text = R"({"a": 1})";
        const ScriptedPeer service(m_root.Of("storage.paas.orb"), [&](const Reply& request) {
            text += isChanged ? " " : "";
            return request.header.method == 2 ? ReplyTo(request, 200, FragmentPayload(text.c_str()))
                                              : ReplyTo(request, 400);
        });
        setenv("EDITOR", "sh -c 'stat -c %a \"$0\" >\"$0\"'", 1);
        EXPECT_EQ(Run({"edit", "app/net"}), EXIT_REFUSED);
        EXPECT_THAT(m_err, HasSubstr(isChanged ? "another client changed it" : "status 400"));
        const std::string path = m_err.substr(m_err.find("kept in ") + 8);
        std::ifstream kept(path.substr(0, path.find('\n')));
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "600\n");
        unlink(path.substr(0, path.find('\n')).c_str());
    }
}

// A terminal in the place of standard input and output; the lines wait in it.
TEST_F(TheCommandLine, RunsNoLineOfAPromptThatIsNoUtf8) {
    TestClient terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    unlockpt(terminal.Fd());
    const TestClient line(open(ptsname(terminal.Fd()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const std::string typed =
        "set a=K\xC3\xBC\nset a=\xC3\nset a=\xFFx\nset a=\xF0\x9F\x98z\n set a=secret\nset a=z\nquit\n";
    EXPECT_EQ(write(terminal.Fd(), typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    const TestClient formerIn(dup(STDIN_FILENO));
    const TestClient formerOut(dup(STDOUT_FILENO));
    dup2(line.Fd(), STDIN_FILENO);
    dup2(line.Fd(), STDOUT_FILENO);
    std::stringstream out;
    setenv("XDG_STATE_HOME", m_root.Of("state").c_str(), 1);
    EXPECT_EQ(RunApp({"shell", WriteItem()}, {out, out, out, true}), EXIT_USAGE);
    std::fflush(stdout);
    dup2(formerIn.Fd(), STDIN_FILENO);
    dup2(formerOut.Fd(), STDOUT_FILENO);
    const std::string refused = "appcfg: the line holds bytes that are no UTF-8; it was not run\n";
    EXPECT_EQ(out.str(), "created app/net/0\nset 1 value\n" + refused + refused + refused +
                             "set 1 value\nset 1 value\n");
    EXPECT_EQ(m_service.Requests().size(), 4U);
    EXPECT_EQ(Sent(72), "a|z");
    std::ifstream history(m_root.Of("state/appcfg/history"));
    const std::string kept(std::istreambuf_iterator<char>(history), {});
    EXPECT_THAT(kept, AllOf(HasSubstr("a=z\n"), Not(HasSubstr("secret"))));
    EXPECT_EQ(std::filesystem::status(m_root.Of("state/appcfg/history")).permissions(),
              std::filesystem::perms{0600});
}

} // namespace
} // namespace appcfg::cli
