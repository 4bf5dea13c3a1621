// A client's connection to the service.
#ifndef APPCFG_CONNECTION_H
#define APPCFG_CONNECTION_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "appcfg/item.h"
#include "appcfg/item_description.h"

namespace appcfg {

class Channel;

// Owns one descriptor, and with it the items created through it: the service deletes them when it closes.
// Used by one thread at a time, together with its items; several connections are independent.
class Connection {
public:
    // Longer than any request should take: to end an item may take the service 60 s, and clients wait for
    // each other.
    static constexpr std::chrono::milliseconds DEFAULT_TIMEOUT = std::chrono::seconds(90);

    // Connects to the service below the framework's root (the environment variable KESTREL_ROOT or
    // /mnt/kestrel); ConnectionError when it does not answer there. The time-out, from a millisecond to a
    // day, is how long a connect may take, and how long a request may take until its reply is whole:
    // TimeoutError then, and the connection is closed, so that a late reply is never taken for another
    // request's.
    explicit Connection(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    // Connects when Connect is called or the first request is sent.
    static Connection Deferred(std::chrono::milliseconds timeout = DEFAULT_TIMEOUT);
    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&&) noexcept = default;
    ~Connection() = default;

    void Connect();

    // From now on a lost connection is made again by the call that finds it lost: it waits for the service,
    // up to the time-out, creates the items that this connection created since, in that order and with their
    // newest keys, calls told with the reason, and then makes its own request, once more if it had been sent.
    // A request may be made twice, then; a second delete is refused with 404. What had not been saved is
    // lost, as without this. When a creation is refused then, the others are made, and the call throws the
    // refusal. A call that timed out is not repeated; the next one connects anew. Told runs inside the call,
    // and may use other connections, not this one. Nothing turns this off again.
    using Told = std::function<void(const std::string& reason)>;
    void KeepItems(Told told);

    // Creates the item at the service. One that has the same handle is ended first, whoever created it, so
    // that a refused creation leaves none as a rule. The item is this connection's from then on, until
    // another one creates it: when that one closes, it ends without a word, and calls are refused with 404.
    Item Create(const ItemDescription& description);

    // Reaches an item that any connection created. No request is made: a call on it fails with status 404
    // when there is none.
    Item Open(const Handle& handle) const;

    // Closes the descriptor. Items of this connection end; calls on them are ConnectionErrors.
    void Close() noexcept { m_channel.reset(); }

private:
    explicit Connection(std::shared_ptr<Channel> channel);
    Channel& OpenChannel() const;

    std::shared_ptr<Channel> m_channel;
};

} // namespace appcfg

#endif
