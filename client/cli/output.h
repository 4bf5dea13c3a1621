// What commands print.
#ifndef APPCFG_CLI_OUTPUT_H
#define APPCFG_CLI_OUTPUT_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "diagnosis.h"

namespace appcfg::cli {

// What people are told beside the results, on standard error. On a terminal control characters are shown as
// \xNN, so that no value, key or path takes it over. Refers to its stream only.
class Messages {
public:
    Messages(std::ostream& stream, bool terminal, bool colours) :
        m_stream(stream), m_terminal(terminal), m_colours(terminal && colours) {}

    // Null: no person reads.
    std::ostream* Terminal() const { return m_terminal ? &m_stream : nullptr; }

    // One line, behind the program's name.
    void Tell(std::string_view text);
    // Lines as they are.
    void Print(std::string_view lines);

private:
    std::ostream& m_stream;
    bool m_terminal;
    bool m_colours;
};

// On and off; empty where there are no colours.
struct Mark {
    const char* on = "";
    const char* off = "";
};
constexpr Mark RED{"\x1B[31m", "\x1B[0m"};
constexpr Mark BOLD{"\x1B[1m", "\x1B[0m"};

struct ItemLine {
    std::string handle;
    std::string storage;
    std::string path;
    bool gone; // the service has no such item any more
};

// Prints results plain or as JSON, one document a line, and flushes after each, so that a program at the
// other end of a pipe can follow. Owned by the session.
class Output {
public:
    // A terminal is shown control characters as messages show them.
    Output(std::ostream& stream, bool terminal, bool colours, bool confirms) :
        m_stream(stream), m_terminal(terminal), m_colours(terminal && colours), m_confirms(confirms) {}

    void UseJson(bool json) { m_json = json; }

    // One value a line, or an object of keys and values.
    void Values(const std::vector<std::string>& keys, const std::vector<std::string>& values);
    // The text and a line end, or a JSON string.
    void Text(const std::string& text);
    // The bytes alone; as Text where people read, or JSON is wanted.
    void Bytes(const std::string& bytes);
    void Items(const std::vector<ItemLine>& items);
    // What is there, and what a creation would do.
    void Found(const Check& check);
    // That the service at this root answers, after so long.
    void Answer(const std::string& root, double milliseconds);
    // The commands.
    void Help();
    // One line that says what was done; nothing when results alone are wanted.
    void Done(const std::string& what);

    // False once something could not be written.
    bool Good() const { return m_stream.good(); }

private:
    // One line; characters of `kept` are no control characters.
    void Line(std::string_view text, std::string_view kept = {});
    // The text, marked where there are colours.
    void Marked(const Mark& mark, std::string_view text);
    template <class Json>
    void JsonLine(const Json& json);

    std::ostream& m_stream;
    bool m_terminal;
    bool m_colours;
    bool m_confirms;
    bool m_json = false;
};

} // namespace appcfg::cli

#endif
