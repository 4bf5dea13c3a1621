// What every call into a service's code runs inside, and what every C function and loop callback is.
#ifndef KESTREL_FENCE_H
#define KESTREL_FENCE_H

#include <exception>
#include <utility>

#include "exports.h"

// The transport's own lines carry this module number.
#define KESTREL_LOG(level, ...) PL_WriteLog(1, level, 0, 0, __FILE__, __LINE__, __VA_ARGS__)

namespace Kestrel {

// Runs the call; false, with one log line that names it, when something was thrown.
template <typename Call>
bool Fenced(const char* what, Call&& call) {
    try {
        std::forward<Call>(call)();
        return true;
    } catch (const std::exception& e) {
        KESTREL_LOG(3, "%s threw: %s", what, e.what());
    } catch (...) {
        KESTREL_LOG(3, "%s threw", what);
    }
    return false;
}

} // namespace Kestrel

#endif
