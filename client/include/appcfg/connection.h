// A client's connection to the service.
#ifndef APPCFG_CONNECTION_H
#define APPCFG_CONNECTION_H

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
    // Connects to the service below the framework's root (the environment variable KESTREL_ROOT or
    // /mnt/kestrel); ConnectionError when it does not answer there.
    Connection();
    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&&) noexcept = default;
    ~Connection() = default;

    // Creates the item at the service; one that has the same handle is replaced.
    Item Create(const ItemDescription& description);

    // Reaches an item that any connection created. No request is made: a call on it fails with status 404
    // when there is none.
    Item Open(const Handle& handle) const;

    // Closes the descriptor. Items of this connection end; calls on them are ConnectionErrors.
    void Close() noexcept { m_channel.reset(); }

private:
    std::shared_ptr<Channel> m_channel;
};

} // namespace appcfg

#endif
