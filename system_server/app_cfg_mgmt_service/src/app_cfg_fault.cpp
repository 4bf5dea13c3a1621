#include "app_cfg_fault.h"

#include <Poco/Exception.h>

#include <exception>

#include "app_cfg_log.h"

namespace SystemServer {

void LogCurrentFault(const char* file, int line) noexcept {
    const auto write = [&](const char* text) {
        PL_WriteLog(APP_CFG_LOG_MODULE, ACM_ERROR, 0, 0, file, line, "%s", text);
    };
    try {
        throw;
    } catch (const Poco::Exception& fault) {
        try {
            write(fault.displayText().c_str());
        } catch (...) {
            write(fault.name()); // not even memory for the text
        }
    } catch (const std::exception& fault) {
        write(fault.what());
    } catch (...) {
        write("unknown exception");
    }
}

} // namespace SystemServer
