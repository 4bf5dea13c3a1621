// Runs the sessions of the project's pages against the service of this process and compares what they show.
//
// A page's chapters ("## ...") are cases of their own. In a chapter a block ```json FILE (or xml, ini, text)
// is a file of that name; without a name it is the item app/net, which each session of the chapter holds. A
// block
// ```session is what a person sees: "appcfg> " before what is typed in the client's shell, "$ " before what
// is typed in another terminal; a block ```terminal is such a terminal, without an item. A block ```log has
// the service's lines of level 3 since the one before. The test's directory is called /data on the pages.
#include <cstdio>
#include <sstream>

#include "app.h"
#include "split_words.h"
#include "support/page.h"
#include "support/service_fixture.h"

namespace ServiceTest {

struct Chapter {
    std::string name; // of the case
    std::vector<Block> blocks;
};

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::string NameOf(const std::string& page, const std::string& title) {
    std::string name = page.substr(page.rfind('/') + 1);
    name.resize(name.rfind('.'));
    name += "_" + title;
    for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return name;
}

// The chapters that have a session.
std::vector<Chapter> ChaptersOf(const std::string& page) {
    std::vector<Chapter> all;
    std::vector<Chapter> found;
    for (const Block& block : BlocksOf(page)) {
        const std::string name = NameOf(page, block.chapter);
        if (all.empty() || all.back().name != name) {
            all.push_back({name, {}});
        }
        all.back().blocks.push_back(block);
    }
    const auto isSession = [](const Block& block) {
        return block.info == "session" || block.info == "terminal";
    };
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](const Chapter& chapter) {
        return std::any_of(chapter.blocks.begin(), chapter.blocks.end(), isSession);
    });
    return found;
}

// What the shell reads from: each line is taken from the page when the shell asks for it, and shown. Commands
// of the other terminal run in between.
class Typed : public std::streambuf {
public:
    using Run = std::function<std::string(const std::string& command)>;
    Typed(const std::string& session, std::ostream& shown, Run run) :
        m_session(session), m_shown(shown), m_run(std::move(run)) {}

private:
    static constexpr char PROMPT[] = "appcfg> ";

    int_type underflow() override {
        for (std::string line; std::getline(m_session, line);) {
            if (line.rfind(PROMPT, 0) == 0) {
                m_shown << line << "\n";
                m_line = line.substr(sizeof PROMPT - 1) + "\n";
                setg(m_line.data(), m_line.data(), m_line.data() + m_line.size());
                return traits_type::to_int_type(m_line[0]);
            }
            if (line.rfind("$ ", 0) == 0) {
                m_shown << line << "\n" << m_run(line.substr(2));
            }
        }
        return traits_type::eof();
    }

    std::istringstream m_session;
    std::ostream& m_shown;
    const Run m_run;
    std::string m_line;
};

class ASession : public AService, public ::testing::WithParamInterface<Chapter> {
protected:
    void Takes(const Block& block) {
        std::istringstream info(block.info);
        std::string kind;
        std::string name;
        info >> kind >> name;
        const std::string text = Replaced(block.text, "/data/", Path(""));
        if (kind == "session" || kind == "terminal") {
            EXPECT_EQ(Shown(text, kind == "session"), block.text);
            EXPECT_TRUE(Knows({})) << "items end with their session";
        } else if (kind == "log") {
            std::string lines;
            for (const std::string& line : m_log.Errors()) {
                lines += line.substr(2) + "\n";
            }
            EXPECT_EQ(lines, block.text);
            m_log.Clear();
        } else if (!name.empty()) {
            std::filesystem::permissions(Writes(name, text), std::filesystem::perms{0600});
        } else {
            Writes("net." + kind, text);
            m_item = R"({"handle": "app/net", "storage": ")" + kind + R"(", "path": ")" +
                     Path("net." + kind) + R"(", "backup": ")" + Path("net.backup") + R"(", "default": ")" +
                     Path("net.default") + "\"}";
        }
    }

private:
    // What a person sees who types the session's commands.
    std::string Shown(const std::string& session, bool hasShell) {
        std::ostringstream shown;
        Typed typed(session, shown, [this](const std::string& command) { return OfTerminal(command); });
        std::istream in(&typed);
        if (!hasShell) {
            in.get();
            return Replaced(shown.str(), Path(""), "/data/");
        }
        std::vector<std::string> words{"shell"};
        if (!m_item.empty()) {
            words.push_back(Writes("item", m_item));
        }
        appcfg::cli::RunApp(words, {in, shown, shown, false});
        const std::string text = Replaced(shown.str(), Path(""), "/data/");
        const std::string created = "created app/net/0\n";
        return text.rfind(created, 0) == 0 && !m_item.empty() ? text.substr(created.size()) : text;
    }

    std::string OfTerminal(const std::string& command) {
        std::ostringstream shown;
        int status = 0;
        std::vector<std::string> words = appcfg::cli::SplitWords(command);
        if (words[0] == "EDITOR") { // of the commands that follow
            ::setenv("EDITOR", words[1].c_str(), 1);
        } else if (words[0] == "appcfg") {
            std::istringstream in;
            status = appcfg::cli::RunApp({words.begin() + 1, words.end()}, {in, shown, shown, false});
        } else {
            FILE* const pipe = ::popen(("cd " + Path("") + " && (" + command + ") 2>&1").c_str(), "re");
            for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
                shown << static_cast<char>(byte);
            }
            status = WEXITSTATUS(::pclose(pipe));
        }
        const bool isWhole = shown.str().empty() || shown.str().back() == '\n';
        shown << (isWhole ? "" : "\n")
              << (status == 0 ? "" : "(exit status " + std::to_string(status) + ")\n");
        return shown.str();
    }

    std::string m_item; // the description of app/net; empty: none
};

TEST_P(ASession, ShowsWhatItsPageSays) {
    for (const Block& block : GetParam().blocks) {
        Takes(block);
    }
}

std::vector<Chapter> AllChapters() {
    std::vector<Chapter> chapters;
    for (const char* page :
         {"docs/keys.md", "tests/sessions/json.md", "tests/sessions/xml.md", "tests/sessions/ini.md",
          "tests/sessions/files.md", "tests/sessions/encryption.md", "tests/sessions/command_line.md",
          "tests/sessions/item_files.md", "tests/sessions/diagnosis.md", "tests/sessions/whole_documents.md",
          "tests/sessions/init.md", "tests/sessions/completion.md"}) {
        for (Chapter& chapter : ChaptersOf(page)) {
            chapters.push_back(std::move(chapter));
        }
    }
    return chapters;
}

void PrintTo(const Chapter& chapter, std::ostream* out) {
    *out << chapter.name;
}

INSTANTIATE_TEST_SUITE_P(Of, ASession, ::testing::ValuesIn(AllChapters()),
                         [](const auto& chapter) { return chapter.param.name; });

} // namespace ServiceTest
