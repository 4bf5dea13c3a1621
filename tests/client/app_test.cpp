#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <sstream>

#include "app.h"
#include "fake_service.h"

namespace appcfg::cli {
namespace {

using test::FakeService;
using test::FragmentPayload;
using test::ReplyTo;
using test::RootDirectory;
using test::ValuesPayload;
using test::WholeFrame;
using testing::HasSubstr;
using Words = std::vector<std::string>;

// A service in a few lines: values by key, one fragment, and 404 for the item "app/gone".
class SmallService {
public:
    std::string operator()(const WholeFrame& request) {
        const char* record = request.payload.c_str();
        const std::string query(request.payload.size() > 72 ? record + 72 : "");
        if (std::string(record + 32) == "gone") {
            return ReplyTo(request, 404);
        }
        switch (request.header.uri << 4 | request.header.method) {
        case 0x12:
            return Get(request, query);
        case 0x22:
            return ReplyTo(request, 200, FragmentPayload(query.empty() ? "<all/>" : "<" + query + "/>"));
        default:
            return ReplyTo(request, 200);
        }
    }

private:
    std::string Get(const WholeFrame& request, const std::string& query) {
        std::vector<std::string> values;
        std::istringstream keys(query);
        for (std::string key; std::getline(keys, key, ',');) {
            if (m_values.count(key) == 0) {
                return ReplyTo(request, 400);
            }
            values.push_back(m_values[key]);
        }
        return ReplyTo(request, 200, ValuesPayload(values));
    }

    std::map<std::string, std::string> m_values = {{"a", "1"},      {"b", "two \"x\""}, {"set", "word"},
                                                   {"[@v]", "2.0"}, {"-x", "dash"},     {"bad", "\xFF"}};
};

class TheCommandLine : public testing::Test {
protected:
    ExitStatus Run(const Words& words, const std::string& input = {}) {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        const ExitStatus status = RunApp(words, {in, out, err, false});
        m_out = out.str();
        m_err = err.str();
        return status;
    }

    // Words of one line, which has no quotes.
    ExitStatus RunLine(const std::string& line) {
        std::istringstream words(line);
        return Run(Words(std::istream_iterator<std::string>(words), {}));
    }

    std::string WriteItem(const std::string& name = "net") const {
        return m_root.Writes(name + ".json",
                             R"({"handle": "app/)" + name + R"(", "storage": "json", "path": "/p"})");
    }

    RootDirectory m_root;
    std::string m_out;
    std::string m_err;
};

class TheCommandLineAtAService : public TheCommandLine {
protected:
    // The content of the last request as text, from an offset to its NUL.
    std::string Sent(size_t offset) const { return m_service.Requests().back().payload.c_str() + offset; }

    FakeService m_service{m_root, SmallService()};
};

TEST_F(TheCommandLine, TellsWrongUsageFromNoService) {
    for (const char* line : {"", "frobnicate", "get", "get app/net", "get app/net a --frob", "set app/net",
                             "restore", "restore app/net more", "raw app/net",
                             "rekey app/net --plain --key-file k", "--root", "create x.json"}) {
        EXPECT_EQ(RunLine(line), EXIT_USAGE) << line;
        EXPECT_NE(m_err, "") << line;
    }
    EXPECT_EQ(Run({"get", "app/net", "a"}), EXIT_UNREACHABLE);
    EXPECT_THAT(m_err, HasSubstr("cannot reach the service"));
    EXPECT_EQ(Run({"shell"}), EXIT_UNREACHABLE);
    EXPECT_EQ(Run({"--help"}), EXIT_DONE);
    EXPECT_THAT(m_out, HasSubstr("Exit status: 0 done"));
}

TEST_F(TheCommandLine, TakesTheRootFromItsOption) {
    FakeService service(m_root, SmallService());
    setenv("KESTREL_ROOT", "/nonexistent", 1);
    EXPECT_EQ(Run({"get", "app/net", "a"}), EXIT_UNREACHABLE);
    EXPECT_EQ(Run({"get", "app/net", "a", "--root", m_root.Of("")}), EXIT_DONE);
}

TEST_F(TheCommandLineAtAService, PrintsValuesPlainOrAsJson) {
    EXPECT_EQ(Run({"get", "app/net", "b", "a"}), EXIT_DONE);
    EXPECT_EQ(m_out, "two \"x\"\n1\n");
    EXPECT_EQ(Run({"--json", "get", "app/net", "b", "a"}), EXIT_DONE);
    EXPECT_EQ(m_out, "{\"b\":\"two \\\"x\\\"\",\"a\":\"1\"}\n");
    EXPECT_EQ(Run({"get", "app/net", "bad", "--json"}), EXIT_DONE);
    EXPECT_EQ(m_out, "{\"bad\":\"\xEF\xBF\xBD\"}\n");
}

// Words that the parser has a use of its own for reach the service as they are.
TEST_F(TheCommandLineAtAService, TakesKeysThatLookLikeSomethingElse) {
    EXPECT_EQ(Run({"get", "app/net", "set", "[@v]"}), EXIT_DONE);
    EXPECT_EQ(m_out, "word\n2.0\n");
    EXPECT_EQ(Run({"get", "app/net", "--", "-x"}), EXIT_DONE);
    EXPECT_EQ(m_out, "dash\n");
    EXPECT_EQ(Run({"set", "app/net", "[0]=[1]", "k=a=b"}), EXIT_DONE);
    EXPECT_EQ(Sent(72), "[0]|[1],k|a=b");
    EXPECT_EQ(Run({"set", "app/net", "r[@id=x].l=1", "r[@id='x]=y'][@n]=[@a=b]", "[@v]=", "a[b=c"}),
              EXIT_DONE);
    EXPECT_EQ(Sent(72), "r[@id=x].l|1,r[@id='x]=y'][@n]|[@a=b],[@v]|,a[b|c");
}

TEST_F(TheCommandLineAtAService, ReportsARefusalWithStatusAndReason) {
    EXPECT_EQ(Run({"get", "app/gone/2", "a"}), EXIT_REFUSED);
    EXPECT_EQ(m_err, "appcfg: get app/gone/2: status 404, not found: no item with this handle\n");
    EXPECT_EQ(m_out, "");
    EXPECT_EQ(Run({"get", "app/net", "a", "missing"}), EXIT_REFUSED);
    EXPECT_THAT(m_err, HasSubstr("status 400"));
    EXPECT_EQ(Run({"delete", "app/gone"}), EXIT_REFUSED);
}

TEST_F(TheCommandLineAtAService, SendsNothingForArgumentsThatCannotBeSent) {
    for (const char* line : {"get app/net a,b", "set app/net a=1|2", "set app/net a", "set app/net a[@b=c]",
                             "set app/net a[@b=c", "set app/net a[@b='c]=d", "get nohandle a",
                             "rekey app/net", "raw app/net frob", "raw app/net get k data",
                             "raw app/net set k @/nonexistent", "rekey app/net --key-file /nonexistent"}) {
        EXPECT_EQ(RunLine(line), EXIT_USAGE) << line;
    }
    EXPECT_TRUE(m_service.Requests().empty());
}

TEST_F(TheCommandLineAtAService, ReadsAndReplacesFragments) {
    EXPECT_EQ(Run({"raw", "app/net", "get"}), EXIT_DONE);
    EXPECT_EQ(m_out, "<all/>\n");
    EXPECT_EQ(Run({"raw", "get", "app/net", "k", "--json"}), EXIT_DONE);
    EXPECT_EQ(m_out, "\"<k/>\"\n");

    const std::string file = m_root.Writes("data", "from file");
    const std::pair<Words, std::string> sets[] = {
        {{"raw", "app/net", "set", "k", "given"}, "given"},
        {{"raw", "app/net", "set", "k", "@" + file}, "from file"},
        {{"raw", "app/net", "set", "k", "@@x"}, "@x"},
        {{"raw", "app/net", "set", "k"}, "from input\n"},
        {{"raw", "set", "app/net", "", "[1]"}, "[1]"},
    };
    for (const auto& [words, data] : sets) {
        EXPECT_EQ(Run(words, "from input\n"), EXIT_DONE) << m_err;
        EXPECT_EQ(Sent(204), data);
        EXPECT_EQ(Sent(72), words[3].empty() ? "" : "k");
    }
}

TEST_F(TheCommandLineAtAService, FailsWhenItsOutputIsLost) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(RunApp({"get", "app/net", "a"}, {in, out, err, false}), EXIT_REFUSED);
    EXPECT_THAT(err.str(), HasSubstr("cannot write"));
}

TEST_F(TheCommandLineAtAService, RunsAShellOnOneConnectionWithItsItems) {
    EXPECT_EQ(
        Run({"shell", WriteItem()}, "items\n# a comment\n\nget a\nraw get\necho 'the end'\nquit\nget b\n"),
        EXIT_DONE);
    EXPECT_EQ(m_out, "created app/net/0\napp/net/0 json /p\n1\n<all/>\nthe end\n");
    EXPECT_EQ(m_err, "");
}

TEST_F(TheCommandLineAtAService, MovesBetweenTheItemsOfAShell) {
    const std::string other = WriteItem("other");
    EXPECT_EQ(Run({"shell", WriteItem()}, "create " + other +
                                              "\nrestore\nuse app/net\nrestore\ndelete\nitems\n"
                                              "restore\n"),
              EXIT_USAGE)
        << "no item is current after a delete";
    EXPECT_EQ(m_out, "created app/net/0\ncreated app/other/0\nrestored app/other/0\nusing app/net/0\n"
                     "restored app/net/0\ndeleted app/net/0\napp/other/0 json /p\n");
}

TEST_F(TheCommandLineAtAService, GoesOnAfterAFailedCommandAndRemembersIt) {
    const std::string item = WriteItem();
    EXPECT_EQ(Run({"shell", item}, "get missing\nget a\n"), EXIT_REFUSED);
    EXPECT_THAT(m_out, HasSubstr("1\n"));
    EXPECT_EQ(Run({"shell", item}, "frobnicate\nget a\n"), EXIT_USAGE);
    EXPECT_EQ(Run({"shell", item}, "frobnicate\nget missing\nget 'a\n"), EXIT_REFUSED);
    EXPECT_EQ(Run({"shell", item}, "raw set k\nget --help\nhelp\n"), EXIT_USAGE);
    EXPECT_EQ(Run({"shell", WriteItem("gone")}, "echo not reached\n"), EXIT_REFUSED);
    EXPECT_EQ(m_out, "");
}

TEST_F(TheCommandLineAtAService, PrintsOneJsonDocumentALineInAShell) {
    EXPECT_EQ(Run({"--json", "shell", WriteItem()}, "items\nset a=2\nget a\nraw get\necho x\n"), EXIT_DONE);
    EXPECT_EQ(m_out, "{\"done\":\"created app/net/0\"}\n"
                     "[{\"handle\":\"app/net/0\",\"storage\":\"json\",\"path\":\"/p\"}]\n"
                     "{\"done\":\"set 1 value\"}\n{\"a\":\"1\"}\n\"<all/>\"\n\"x\"\n");
}

TEST_F(TheCommandLine, EndsAShellThatLosesItsConnection) {
    FakeService service(m_root, [](const WholeFrame& request) {
        return request.header.uri == 0 ? ReplyTo(request, 200) : ""; // hangs up at the first get
    });
    EXPECT_EQ(Run({"shell", WriteItem()}, "get a\necho not reached\n"), EXIT_UNREACHABLE);
    EXPECT_EQ(m_out, "created app/net/0\n");
}

} // namespace
} // namespace appcfg::cli
