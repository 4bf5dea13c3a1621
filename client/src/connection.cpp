#include "appcfg/connection.h"

#include "channel.h"
#include "records.h"

namespace appcfg {
namespace {

constexpr char SERVICE_PATH[] = "/mnt/kestrel/storage.paas.orb";

} // namespace

Connection::Connection() : m_channel(std::make_shared<Channel>(SERVICE_PATH)) {}

Item Connection::Create(const ItemDescription& description) {
    if (!m_channel) {
        throw ConnectionError("the connection is closed");
    }
    const SecretRecord<SystemServer::AppCfgCreateReq> record(MakeCreateReq(description));
    m_channel->Call(Request::CREATE, description.handle, {&record.Get(), record.SIZE, nullptr});
    return Item(m_channel, description.handle, true);
}

Item Connection::Open(const Handle& handle) const {
    return Item(m_channel, handle, false);
}

} // namespace appcfg
