// The command line as a whole.
#ifndef APPCFG_CLI_APP_H
#define APPCFG_CLI_APP_H

#include <functional>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "exit_status.h"
#include "output.h"

namespace appcfg::cli {

// `terminal`: a prompt is wanted on standard input. `outTerminal`, `errTerminal`: people read that stream.
struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool terminal;
    bool outTerminal = false;
    bool errTerminal = false;
    bool colours = false; // where people read
};

// Runs the words that follow the program's name and returns its exit status. Throws nothing but what a
// shortage of memory makes the library throw.
ExitStatus RunApp(const std::vector<std::string>& words, const Streams& streams);

// Runs the action; an error is reported on one line and becomes the exit status that stands for it.
ExitStatus Guarded(Messages messages, const std::function<void()>& action);

} // namespace appcfg::cli

#endif
