#ifndef KESTREL_EVENT_H
#define KESTREL_EVENT_H

#include <event2/event.h>

#include <memory>
#include <new>

#include "fence.h"

namespace Kestrel {

// One event of the loop, removed from it when it ends. Owned by the object whose method it calls.
// Loop thread only.
class Event {
public:
    // Calls the method of the owner when the descriptor (or, without one, the timer) is ready.
    template <auto method, typename Owner>
    static Event Make(event_base* base, int fd, short what, Owner* owner) {
        const auto callback = [](evutil_socket_t, short, void* self) {
            Fenced("a loop callback", [self] { (static_cast<Owner*>(self)->*method)(); });
        };
        return Event(event_new(base, fd, what, callback, owner));
    }

    Event() = default;

    // False when the loop could not take the event.
    bool Add() { return event_add(m_event.get(), nullptr) == 0; }
    bool AddTimer(int milliseconds) {
        const timeval after{milliseconds / 1000, (milliseconds % 1000) * 1000};
        return event_add(m_event.get(), &after) == 0;
    }
    // Calls the method before the loop waits again. Needs no memory.
    void Activate() { event_active(m_event.get(), EV_TIMEOUT, 0); }
    void Remove() {
        if (m_event) {
            event_del(m_event.get());
        }
    }
    bool IsPending() const {
        return event_pending(m_event.get(), EV_READ | EV_WRITE | EV_TIMEOUT, nullptr) != 0;
    }

private:
    struct Free {
        void operator()(event* e) const { event_free(e); }
    };

    explicit Event(event* e) : m_event(e) {
        if (e == nullptr) {
            throw std::bad_alloc();
        }
    }

    std::unique_ptr<event, Free> m_event;
};

} // namespace Kestrel

#endif
