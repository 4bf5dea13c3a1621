// The prompt by an editing library, whose functions keep their state in globals.
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <editline/readline.h>
#include <fcntl.h>
#include <filesystem>
#include <langinfo.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "exit_status.h"
#include "line_source.h"

namespace appcfg::cli {
namespace {

// The editing library's functions have no context: who completes, and what was found.
LineSource::Completer g_completer;
std::vector<std::string> g_found;

// The editing library asks for one match a call, from state 0 on, and frees what it gets.
char* NextMatch(const char*, int state) {
    const auto index = static_cast<size_t>(state);
    return index < g_found.size() ? strdup(g_found[index].c_str()) : nullptr;
}

// Without a match the library completes names of files.
char** Complete(const char* text, int, int end) {
    try {
        g_found = g_completer(std::string(rl_line_buffer, static_cast<size_t>(end)));
    } catch (const std::exception&) {
        g_found.clear(); // the line's command will say why
    }
    const bool leadsOn = g_found.size() == 1 && std::strchr("/.=[", g_found.front().back()) != nullptr;
    rl_completion_append_character = leadsOn ? 0 : ' ';
    return rl_completion_matches(text, NextMatch);
}

// The editing library drops characters that its locale does not know, and looks at it when it starts.
// Values are UTF-8 whatever the environment says.
void UseUtf8() {
    if (std::setlocale(LC_CTYPE, "") == nullptr || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

constexpr int NO_BYTE = -1;

// The editing library's functions have no context: what is read ahead, and what the line has met.
int g_ahead = NO_BYTE;
bool g_isDamaged = false;

int ReadByte() {
    if (g_ahead != NO_BYTE) {
        return std::exchange(g_ahead, NO_BYTE);
    }
    unsigned char byte = 0;
    ssize_t got = 0;
    do {
        got = read(fileno(rl_instream), &byte, 1);
    } while (got < 0 && errno == EINTR);
    return got == 1 ? byte : NO_BYTE;
}

// Reads one character for the editing library, which by itself leaves out bytes that are no UTF-8, so that a
// command would run that nobody typed.
int ReadCharacter(FILE*) {
    constexpr int REPLACEMENT = 0xFFFD;
    std::mbstate_t state{};
    for (bool isFirst = true;; isFirst = false) {
        const int byte = ReadByte();
        if (byte == NO_BYTE) {
            g_isDamaged = g_isDamaged || !isFirst;
            return byte;
        }
        const char next = static_cast<char>(byte);
        wchar_t character = 0;
        const size_t taken = std::mbrtowc(&character, &next, 1, &state);
        if (taken == static_cast<size_t>(-1)) {
            g_isDamaged = true;
            g_ahead = isFirst ? NO_BYTE : byte; // what cuts a character off begins the next
            return REPLACEMENT;
        }
        if (taken != static_cast<size_t>(-2)) {
            return static_cast<int>(character);
        }
    }
}

// Where the history is kept, in a folder that is made; empty: nowhere.
std::string HistoryFile() {
    const auto setting = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::string(value == nullptr ? "" : value);
    };
    std::string folder = setting("XDG_STATE_HOME");
    if (folder.empty() && !setting("HOME").empty()) {
        folder = setting("HOME") + "/.local/state";
    }
    if (folder.empty() || !setting("APPCFG_NO_HISTORY").empty()) {
        return "";
    }
    std::error_code failure;
    std::filesystem::create_directories(folder + "/appcfg", failure);
    return folder + "/appcfg/history";
}

// Lines hold values, which may be secrets: nobody else reads the file. The library keeps a file's mode.
class History {
public:
    // The library begins with it: how it reads is to be settled before.
    void Begin() {
        m_file = HistoryFile();
        using_history();
        stifle_history(1000);
        clear_history();
        const int fd =
            m_file.empty() ? -1 : open(m_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0 || fchmod(fd, 0600) != 0) {
            m_file.clear();
        }
        if (fd >= 0) {
            close(fd);
        }
        if (!m_file.empty()) {
            read_history(m_file.c_str());
        }
    }

    // A line that begins with a blank is not kept.
    void Add(const std::string& line) {
        if (line.empty() || line.front() == ' ') {
            return;
        }
        add_history(line.c_str());
        if (!m_file.empty()) {
            write_history(m_file.c_str());
        }
    }

private:
    std::string m_file;
};

class PromptSource : public LineSource {
public:
    // What the terminal does not show stands between the library's marks.
    explicit PromptSource(bool bold) : m_prompt(bold ? "\1\x1B[1m\1appcfg>\1\x1B[0m\1 " : "appcfg> ") {
        UseUtf8();
        rl_getc_function = ReadCharacter;
        m_history.Begin();
        rl_attempted_completion_function = Complete;
        static char wordBreaks[] = " \t";
        rl_completer_word_break_characters = wordBreaks;
    }
    ~PromptSource() override { g_completer = nullptr; }
    PromptSource(const PromptSource&) = delete;
    PromptSource& operator=(const PromptSource&) = delete;

    void Use(const Completer& completer) override { g_completer = completer; }

    bool Next(std::string& line) override {
        g_isDamaged = false;
        char* text = readline(m_prompt);
        if (text == nullptr) {
            std::puts("");
            return false;
        }
        line = text;
        std::free(text);
        if (g_isDamaged) {
            throw UsageError("the line holds bytes that are no UTF-8; it was not run");
        }
        m_history.Add(line);
        return true;
    }

private:
    const char* m_prompt;
    History m_history;
};

} // namespace

std::unique_ptr<LineSource> MakePromptSource(bool bold) {
    return std::make_unique<PromptSource>(bold);
}

} // namespace appcfg::cli
