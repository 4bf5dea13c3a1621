// The fence around code that must not throw further: what escapes is logged, and the service goes on.
#ifndef APP_CFG_FAULT_H
#define APP_CFG_FAULT_H

#include <utility>

namespace SystemServer {

// Logs the exception being handled, a Poco::Exception by its display text, as a level-3 line of file:line.
// Only inside a catch block.
void LogCurrentFault(const char* file, int line) noexcept;

// Runs the action; false when it threw, which is then logged.
template <typename Action>
bool Fence(const char* file, int line, Action&& action) noexcept {
    try {
        std::forward<Action>(action)();
        return true;
    } catch (...) {
        LogCurrentFault(file, line);
        return false;
    }
}

} // namespace SystemServer

#endif
