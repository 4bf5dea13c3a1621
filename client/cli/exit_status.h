// How the command line ends.
#ifndef APPCFG_CLI_EXIT_STATUS_H
#define APPCFG_CLI_EXIT_STATUS_H

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace appcfg::cli {

enum ExitStatus : int {
    EXIT_DONE = 0,
    EXIT_REFUSED = 1, // by the service, with another status than 200, or not seen to be done; or the output
                      // cannot be written
    EXIT_USAGE = 2,   // arguments, an item file or a key file
    EXIT_UNREACHABLE = 3, // no service, or the connection was lost
};

// The service refused a request, or accepted it and what it was to do is not seen to be done.
class Unconfirmed : public std::runtime_error {
public:
    explicit Unconfirmed(const std::string& what, std::vector<std::string> reasons = {}) :
        std::runtime_error(what), m_reasons(std::move(reasons)) {}

    // A line each, of what was found out.
    const std::vector<std::string>& Reasons() const { return m_reasons; }

private:
    std::vector<std::string> m_reasons;
};

// What the person at the command line has to put right.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace appcfg::cli

#endif
