#ifndef KESTREL_EVENT_MGR_H
#define KESTREL_EVENT_MGR_H

#include <list>
#include <memory>
#include <string>

#include "descriptor.h"
#include "event.h"
#include "message_store.h"
#include "server.h"

namespace Kestrel {

// One event loop with its servers. Owned by the framework until it is freed; made on any thread, then run
// by one. Stop may be called from any thread and needs no lock: it writes to an eventfd.
class EventMgr {
public:
    EventMgr();
    ~EventMgr();
    EventMgr(const EventMgr&) = delete;
    EventMgr& operator=(const EventMgr&) = delete;

    bool Register(const std::string& path, const kestrel_server_ops* ops, const SocketAccess& access);

    // 0 after a stop, 1 when the time ran out, negative when the loop cannot run.
    int Run(int timeout);
    void Stop();

    event_base* Base() { return m_base.get(); }
    MessageStore& Store() { return m_store; }

    // Servers that paused because descriptors ran out try to accept again, and the memory that the connection
    // had goes back to the system a little later.
    void ConnectionEnded();

    // A connection holds more or less for its client than before. While all together hold too much, the one
    // that has stood still for longest is marked as lost.
    void HeldChanged(std::size_t before, std::size_t now);

private:
    struct Free {
        void operator()(event_base* base) const { event_base_free(base); }
    };

    void OnStop();
    void OnTimeout();
    void OnTrim();

    std::unique_ptr<event_base, Free> m_base;
    Descriptor m_stopFd;
    Event m_stop;
    Event m_timeout;
    Event m_trim;
    bool m_stopped = false;
    std::size_t m_held = 0; // by all connections, beyond what is free for each
    MessageStore m_store;
    std::list<Server> m_servers;
};

} // namespace Kestrel

struct kestrel_event_mgr final : Kestrel::EventMgr {
    // All loops of the process are linked, so that one that a service never frees is no leak to a checker.
    kestrel_event_mgr* next = nullptr;
};

#endif
