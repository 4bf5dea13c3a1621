// How the command line ends.
#ifndef APPCFG_CLI_EXIT_STATUS_H
#define APPCFG_CLI_EXIT_STATUS_H

#include <stdexcept>

namespace appcfg::cli {

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_REFUSED = 1, // by the service, with another status than 200, or not seen to be done; or the output
                      // cannot be written
    EXIT_USAGE = 2,   // arguments, an item file or a key file
    EXIT_UNREACHABLE = 3, // no service, or the connection was lost
};

// The service accepted a request, but what it was to do is not seen to be done.
class Unconfirmed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What the person at the command line has to put right.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace appcfg::cli

#endif
