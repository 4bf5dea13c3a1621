#ifndef APP_MANAGER_APP_MANAGER_H
#define APP_MANAGER_APP_MANAGER_H

#include <cstdint>

#include "kestrel/kestrel.h"
#include "tern/tern.h"

namespace AppManager {

// Answers in which directory of the host a process has its root. Without state; the functions are called
// by the framework, on its loop's thread.
class AppManagerServer {
public:
    // Registers the service and runs its loop; 0 after it was asked to stop.
    static int Run();

private:
    static int StartServer(kestrel_server* server, void* arg);
    static void ProcessMsg(tern_message* msg, kestrel_connection* conn);
    static std::uint16_t AnswerRoot(tern_message* msg, std::int32_t pid);

    static const kestrel_server_ops m_serverOps;
    static const kestrel_protocol_ops m_protocolOps;
    static const kestrel_connection_ops m_connectionOps;
};

} // namespace AppManager

// The library's entry.
extern "C" __attribute__((visibility("default"))) int CreateAppMgrService(void);

#endif
