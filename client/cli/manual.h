// What the command line says of itself, once, for --help and for the manual page.
#ifndef APPCFG_CLI_MANUAL_H
#define APPCFG_CLI_MANUAL_H

#include <CLI/CLI.hpp>
#include <string>

namespace appcfg::cli {

extern const char DESCRIPTION[];

// What stands below the help.
std::string Footer();

// The manual page, as roff, of the options that `app` declares and of the commands.
std::string ManualPage(const CLI::App& app);

} // namespace appcfg::cli

#endif
