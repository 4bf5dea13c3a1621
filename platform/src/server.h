#ifndef KESTREL_SERVER_H
#define KESTREL_SERVER_H

#include <list>
#include <string>

#include "connection.h"
#include "event.h"
#include "message_store.h"
#include "socket_file.h"

namespace Kestrel {

class EventMgr;

// One registered service: accepts its clients and owns their connections.
// Owned by the event manager. Loop thread only, except that it may be made before the loop runs.
class Server final : public kestrel_server {
public:
    Server(EventMgr& mgr, const kestrel_server_ops* ops);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Listens and runs the service's start callback. False, with nothing left behind, when either fails.
    bool Start(const std::string& path, const SocketAccess& access);

    void StopAccepting();
    void CloseConnections();

    // Accepts again when it had paused for want of descriptors.
    void TryToResume();

    // For its connections.
    event_base* Base();
    MessageStore& Store();
    void End(std::list<Connection>::iterator connection);
    void HeldChanged(std::size_t before, std::size_t now);

    // Of this server's connections and the one given, which may be null, the one to close when all hold too
    // much.
    Connection* FirstToClose(Connection* first);

private:
    void OnAcceptable();
    bool AcceptOne();
    void Adopt(Descriptor client);
    bool HasDescriptorsToSpare() const;
    void PauseAccepting(const char* reason);
    void OnRetry();

    EventMgr& m_mgr;
    const kestrel_server_ops* m_ops;
    std::string m_name;
    SocketFile m_file;
    LogBudget m_lines{-1};
    Event m_acceptable;
    Event m_retry;
    bool m_started = false;
    bool m_paused = false; // waits for a closing connection or the retry timer
    bool m_short = false;  // the pause is logged, and nobody was accepted since
    std::list<Connection> m_connections;
};

} // namespace Kestrel

#endif
