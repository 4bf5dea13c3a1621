#include "appcfg/connection.h"

#include "channel.h"
#include "records.h"

namespace appcfg {

Connection::Connection(std::shared_ptr<Channel> channel) : m_channel(std::move(channel)) {}

Connection::Connection(std::chrono::milliseconds timeout) : Connection(Deferred(timeout)) {
    Connect();
}

Connection Connection::Deferred(std::chrono::milliseconds timeout) {
    return Connection(std::make_shared<Channel>(timeout));
}

Channel& Connection::OpenChannel() const {
    if (!m_channel) {
        throw ConnectionError("the connection is closed");
    }
    return *m_channel;
}

void Connection::Connect() {
    OpenChannel().Connect();
}

void Connection::KeepItems(Told told) {
    OpenChannel().KeepItems(std::move(told));
}

Item Connection::Create(const ItemDescription& description) {
    Channel& channel = OpenChannel();
    const SecretRecord<SystemServer::AppCfgCreateReq> record(MakeCreateReq(description));
    channel.Call(Request::CREATE, description.handle, {&record.Get(), record.SIZE, nullptr});
    return Item(m_channel, description.handle, channel.Claim(description.handle, record));
}

Item Connection::Open(const Handle& handle) const {
    return Item(m_channel, handle, Item::NO_CLAIM);
}

} // namespace appcfg
