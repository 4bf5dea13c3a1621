// Where the shell's lines come from.
#ifndef APPCFG_CLI_LINE_SOURCE_H
#define APPCFG_CLI_LINE_SOURCE_H

#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace appcfg::cli {

class LineSource {
public:
    virtual ~LineSource() = default;

    // False at the end of the input. UsageError for a line that did not arrive as it was typed; the next call
    // goes on behind it.
    virtual bool Next(std::string& line) = 0;

    // What could stand for the last word of a line that is being typed.
    using Completer = std::function<std::vector<std::string>(const std::string& line)>;
    virtual void Use(const Completer&) {}
};

std::unique_ptr<LineSource> MakeStreamSource(std::istream& stream);

// A prompt on the terminal with editing, history and completion. One at a time: the editing library keeps its
// state in globals.
std::unique_ptr<LineSource> MakePromptSource(bool bold);

} // namespace appcfg::cli

#endif
