// The words of one line of the shell.
#ifndef APPCFG_CLI_SPLIT_WORDS_H
#define APPCFG_CLI_SPLIT_WORDS_H

#include <string>
#include <vector>

namespace appcfg::cli {

// Splits at blanks. Single quotes keep everything; in double quotes and outside of quotes a backslash keeps
// the next character. A line whose first character other than a blank is # has no words. UsageError for a
// quote that does not end.
std::vector<std::string> SplitWords(const std::string& line);

} // namespace appcfg::cli

#endif
