// How the service's sources write log lines. The build defines LOG_FILE for each source.
#ifndef APP_CFG_LOG_H
#define APP_CFG_LOG_H

#include "pl/pl_log.h"

namespace SystemServer {

constexpr int APP_CFG_LOG_MODULE = 4;

enum AppCfgLogLevel : int {
    ACM_TRACE = 0, // per-request tracing
    ACM_INFO = 1,  // information and progress
    ACM_ERROR = 3,
};

} // namespace SystemServer

#define ACM_LOG(level, ...)                                                                                  \
    PL_WriteLog(::SystemServer::APP_CFG_LOG_MODULE, ::SystemServer::level, 0, 0, LOG_FILE, __LINE__,         \
                __VA_ARGS__)

#endif
