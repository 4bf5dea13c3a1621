#include "line_source.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <langinfo.h>

#include "command_table.h"

namespace appcfg::cli {
namespace {

class StreamSource : public LineSource {
public:
    explicit StreamSource(std::istream& stream) : m_stream(stream) {}

    bool Next(std::string& line) override { return static_cast<bool>(std::getline(m_stream, line)); }

private:
    std::istream& m_stream;
};

// The editing library asks for one match a call, from state 0 on, and frees what it gets.
char* NextMatch(const char* begin, int state) {
    static size_t next = 0;
    if (state == 0) {
        next = 0;
    }
    const auto& commands = Commands();
    while (next < commands.size()) {
        const char* name = commands[next++].name;
        if (std::strncmp(name, begin, std::strlen(begin)) == 0) {
            return strdup(name);
        }
    }
    return nullptr;
}

// Command names at the start of a line; elsewhere the library's own completion of file names.
char** Complete(const char* text, int start, int) {
    return start == 0 ? rl_completion_matches(text, NextMatch) : nullptr;
}

// The editing library drops characters that its locale does not know, and looks at it when it starts.
// Values are UTF-8 whatever the environment says.
void UseUtf8() {
    if (std::setlocale(LC_CTYPE, "") == nullptr || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

class PromptSource : public LineSource {
public:
    PromptSource() {
        UseUtf8();
        using_history();
        rl_attempted_completion_function = Complete;
    }

    bool Next(std::string& line) override {
        char* text = readline("appcfg> ");
        if (text == nullptr) {
            std::puts("");
            return false;
        }
        line = text;
        std::free(text);
        if (!line.empty()) {
            add_history(line.c_str());
        }
        return true;
    }
};

} // namespace

std::unique_ptr<LineSource> MakeStreamSource(std::istream& stream) {
    return std::make_unique<StreamSource>(stream);
}

std::unique_ptr<LineSource> MakePromptSource() {
    return std::make_unique<PromptSource>();
}

} // namespace appcfg::cli
