#include "appcfg/item.h"

#include "app_cfg_wire.h"
#include "channel.h"
#include "query.h"
#include "records.h"
#include "reply.h"

namespace appcfg {
namespace {

template <class Record>
Content Whole(const Record& record) {
    return {&record, sizeof(record), nullptr};
}

// A peer whose reply does not add up is not asked again.
template <class Parse>
auto Read(Channel& channel, Request request, const Handle& handle, const Content& content, Parse parse) {
    const Reply reply = channel.Call(request, handle, content);
    try {
        return parse(reply);
    } catch (const ConnectionError&) {
        channel.Close();
        throw;
    }
}

} // namespace

Item::Item(std::weak_ptr<Channel> channel, Handle handle, uint64_t claim) :
    m_channel(std::move(channel)), m_handle(std::move(handle)), m_claim(claim) {}

Item::Item(Item&& other) noexcept :
    m_channel(std::move(other.m_channel)), m_handle(std::move(other.m_handle)),
    m_claim(std::exchange(other.m_claim, NO_CLAIM)) {}

Item& Item::operator=(Item&& other) noexcept {
    if (this != &other) {
        DeleteIfOwned();
        m_channel = std::move(other.m_channel);
        m_handle = std::move(other.m_handle);
        m_claim = std::exchange(other.m_claim, NO_CLAIM);
    }
    return *this;
}

Item::~Item() {
    DeleteIfOwned();
}

void Item::DeleteIfOwned() noexcept {
    const std::shared_ptr<Channel> channel = m_channel.lock();
    if (m_claim == NO_CLAIM || !channel) {
        return;
    }
    try {
        if (channel->IsClaimed(m_handle, m_claim)) {
            // First, so that it is not made again; and with a connection that is lost it has ended already.
            channel->Disclaim(m_handle);
            const SystemServer::AppCfgHndl record = MakeHndl(m_handle);
            channel->CallOnce(Request::DELETE_ITEM, m_handle, Whole(record));
        }
    } catch (const std::exception&) {
        // Another client may have deleted it, or the connection is lost and the service has.
    }
}

std::shared_ptr<Channel> Item::OpenChannel() const {
    std::shared_ptr<Channel> channel = m_channel.lock();
    if (!channel) {
        throw ConnectionError("the connection is closed");
    }
    return channel;
}

std::string Item::Get(const std::string& key) const {
    return std::move(GetMany({key}).front());
}

std::vector<std::string> Item::GetMany(const std::vector<std::string>& keys) const {
    const SystemServer::AppCfgDataReq record = MakeDataReq(m_handle, BuildGetQuery(keys));
    return Read(*OpenChannel(), Request::GET, m_handle, Whole(record),
                [&](const Reply& reply) { return ParseValues(reply.content, reply.size, keys.size()); });
}

void Item::Set(const std::string& key, const std::string& value) {
    SetMany({{key, value}});
}

void Item::SetMany(const std::vector<std::pair<std::string, std::string>>& values) {
    const SystemServer::AppCfgDataReq record = MakeDataReq(m_handle, BuildSetQuery(values));
    OpenChannel()->Call(Request::SET, m_handle, Whole(record));
}

std::string Item::GetRaw(const std::string& key) const {
    const SystemServer::AppCfgRawDataReq record = MakeRawDataReq(m_handle, key);
    return Read(*OpenChannel(), Request::RAW_GET, m_handle, Whole(record),
                [](const Reply& reply) { return ParseFragment(reply.content, reply.size); });
}

void Item::SetRaw(const std::string& key, const std::string& data) {
    if (data.find('\0') != std::string::npos) {
        throw InvalidArgument("the data holds a NUL");
    }
    SystemServer::AppCfgRawDataReq record = MakeRawDataReq(m_handle, key);
    record.dataLen = static_cast<uint32_t>(data.size() + 1);
    OpenChannel()->Call(Request::RAW_SET, m_handle, {&record, sizeof(record), &data});
}

void Item::Restore() {
    const SystemServer::AppCfgHndl record = MakeHndl(m_handle);
    OpenChannel()->Call(Request::RESTORE, m_handle, Whole(record));
}

void Item::ChangeKey(const EncryptionKey& key) {
    SendCryptoUpdate(&key);
}

void Item::ChangeToPlain() {
    SendCryptoUpdate(nullptr);
}

// The whole record also for plain files, whose key the service does not use.
void Item::SendCryptoUpdate(const EncryptionKey* key) {
    const auto record = MakeCryptoUpdateReq(m_handle, key);
    const std::shared_ptr<Channel> channel = OpenChannel();
    channel->Call(Request::CHANGE_KEY, m_handle, Whole(record.Get()));
    channel->NoteKey(m_handle, record.Get());
}

void Item::Delete() {
    const SystemServer::AppCfgHndl record = MakeHndl(m_handle);
    const std::shared_ptr<Channel> channel = OpenChannel();
    channel->Call(Request::DELETE_ITEM, m_handle, Whole(record));
    channel->Disclaim(m_handle);
    m_claim = NO_CLAIM;
}

} // namespace appcfg
