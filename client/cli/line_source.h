// Where the shell's lines come from.
#ifndef APPCFG_CLI_LINE_SOURCE_H
#define APPCFG_CLI_LINE_SOURCE_H

#include <istream>
#include <memory>
#include <string>

namespace appcfg::cli {

class LineSource {
public:
    virtual ~LineSource() = default;

    // False at the end of the input. UsageError for a line that did not arrive as it was typed; the next call
    // goes on behind it.
    virtual bool Next(std::string& line) = 0;
};

std::unique_ptr<LineSource> MakeStreamSource(std::istream& stream);

// A prompt on the terminal with editing, a history of this run, and completion of command names. One at a
// time: the editing library keeps its state in globals.
std::unique_ptr<LineSource> MakePromptSource();

} // namespace appcfg::cli

#endif
