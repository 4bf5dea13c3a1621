// The fence around code whose exceptions must not go further: they are logged, and the service goes on.
#ifndef APP_CFG_FAULT_H
#define APP_CFG_FAULT_H

#include <string>
#include <utility>

namespace SystemServer {

// While it lives, the log lines of this thread's fences name the client and the item being worked on.
class AppCfgFaultContext {
public:
    // The key must outlive this object; it is empty until it is known.
    AppCfgFaultContext(int connFd, const std::string& key);
    AppCfgFaultContext(const AppCfgFaultContext&) = delete;
    AppCfgFaultContext& operator=(const AppCfgFaultContext&) = delete;
    ~AppCfgFaultContext();

private:
    friend void LogFencedFault(const char* file, int line) noexcept;

    const int m_connFd;
    const std::string& m_key;
    const AppCfgFaultContext* const m_outer;
};

// Logs the exception being handled, a Poco::Exception by its display text, as a level-3 line of file:line,
// with the context before it. Only inside a catch block.
void LogCurrentFault(const char* file, int line, const char* context = "") noexcept;

// The same, with the context that this thread is in.
void LogFencedFault(const char* file, int line) noexcept;

// Runs the action; false when it threw, which is then logged.
template <typename Action>
bool Fence(const char* file, int line, Action&& action) noexcept {
    try {
        std::forward<Action>(action)();
        return true;
    } catch (...) {
        LogFencedFault(file, line);
        return false;
    }
}

} // namespace SystemServer

#endif
