#include "app_cfg_fault.h"

#include <Poco/Exception.h>

#include <cstdio>
#include <exception>

#include "app_cfg_log.h"

namespace SystemServer {

namespace {

thread_local const AppCfgFaultContext* t_context = nullptr;

// Room for two names of a handle and its index.
constexpr size_t MAX_CONTEXT = 128;

} // namespace

AppCfgFaultContext::AppCfgFaultContext(int connFd, const std::string& key) :
    m_connFd(connFd), m_key(key), m_outer(std::exchange(t_context, this)) {}

AppCfgFaultContext::~AppCfgFaultContext() {
    t_context = m_outer;
}

void LogFencedFault(const char* file, int line) noexcept {
    char text[MAX_CONTEXT] = "";
    if (t_context != nullptr && t_context->m_key.empty()) {
        std::snprintf(text, sizeof text, "connect fd[%d] : ", t_context->m_connFd);
    } else if (t_context != nullptr) {
        std::snprintf(text, sizeof text, "connect fd[%d] : appCfgKey[%s] ", t_context->m_connFd,
                      t_context->m_key.c_str());
    }
    LogCurrentFault(file, line, text);
}

void LogCurrentFault(const char* file, int line, const char* context) noexcept {
    const auto write = [&](const char* text) {
        PL_WriteLog(APP_CFG_LOG_MODULE, ACM_ERROR, 0, 0, file, line, "%s%s", context, text);
    };
    try {
        throw;
    } catch (const Poco::Exception& fault) {
        try {
            write(fault.displayText().c_str());
        } catch (...) {
            write(fault.name()); // there is no memory for the text
        }
    } catch (const std::exception& fault) {
        write(fault.what());
    } catch (...) {
        write("unknown exception");
    }
}

} // namespace SystemServer
