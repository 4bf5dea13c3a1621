// The prompt, and commands from standard input.
#ifndef APPCFG_CLI_SHELL_H
#define APPCFG_CLI_SHELL_H

#include <string>
#include <vector>

#include "app.h"
#include "exit_status.h"
#include "line_source.h"
#include "session.h"

namespace appcfg::cli {

// Runs lines as commands on one session until the input ends, a quit, or the connection is lost. Owned by
// the application object for one run.
class Shell {
public:
    Shell(Connection connection, const Streams& streams, bool json);

    // Creates the items, connects if there are none, then runs the lines. A command that fails is reported
    // and the next one is run. Ends with EXIT_REFUSED when the service refused any, else EXIT_USAGE when any
    // was wrong; at once with EXIT_UNREACHABLE when the connection is lost. An item file that fails ends it
    // before the first line.
    ExitStatus Run(const std::vector<std::string>& itemFiles, LineSource& lines);

private:
    // Runs one command of the words and yields how it went.
    ExitStatus RunWords(const std::vector<std::string>& words);
    // Runs the next line; false when there is none.
    bool RunNext(LineSource& lines, ExitStatus& status);
    std::vector<std::string> Complete(const std::string& line);
    void Parse(const Command& command, const std::vector<std::string>& words, Arguments& arguments);

    std::ostream& m_out;
    Messages m_messages;
    Session m_session;
    bool m_json;
};

} // namespace appcfg::cli

#endif
