// One descriptor to the service and the exchange of requests and replies on it.
#ifndef APPCFG_CHANNEL_H
#define APPCFG_CHANNEL_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "app_cfg_types.h"
#include "appcfg/error.h"
#include "appcfg/handle.h"
#include "records.h"
#include "tern/tern.h"

namespace appcfg {

struct MessageRelease {
    void operator()(tern_message* message) const { tern_message_put(message); }
};
using Message = std::unique_ptr<tern_message, MessageRelease>;

// The content of a reply; it lives as long as the reply.
struct Reply {
    Message message;
    const void* content = nullptr;
    size_t size = 0;
};

// A fixed record, and the text that follows it with its NUL when there is one.
struct Content {
    const void* record;
    size_t size;
    const std::string* text;
};

// Owned by its connection. Used by one thread at a time. After a failed exchange the stream's position is
// not known, so that the descriptor is closed and each further call fails, unless items are kept.
class Channel {
public:
    // The time-out is that of Connection.
    explicit Channel(std::chrono::milliseconds timeout);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Does nothing when it is connected; ConnectionError when it cannot, or was closed.
    void Connect();

    // Connects, sends one request and waits for its reply. RequestRefused for a status other than 200.
    Reply Call(Request request, const Handle& handle, const Content& content);

    // The same, and never makes a lost connection again.
    Reply CallOnce(Request request, const Handle& handle, const Content& content);

    void Close() noexcept;

    // A lost connection is made again, with the items that are claimed.
    void KeepItems(std::function<void(const std::string& reason)> told);

    // An item was created: yields the number that stands for it, and not for one of the same handle before.
    uint64_t Claim(const Handle& handle, const SecretRecord<SystemServer::AppCfgCreateReq>& record);
    // Its encryption has changed.
    void NoteKey(const Handle& handle, const SystemServer::AppCfgCryptoUpdateReq& update);
    // An item of the handle was deleted: no number stands for it any longer.
    void Disclaim(const Handle& handle);
    bool IsClaimed(const Handle& handle, uint64_t claim) const;

private:
    struct Claimed {
        uint64_t number;
        Handle handle;
        SecretRecord<SystemServer::AppCfgCreateReq> record;
    };

    void ConnectAgain(const std::string& reason);
    // Closes the descriptor and throws a ConnectionError: what failed, and why.
    [[noreturn]] void Fail(const std::string& what, const std::string& why);
    [[noreturn]] void FailWith(const std::string& what, int error);
    void BoundWaits(int option, std::chrono::steady_clock::time_point deadline);
    void Send(tern_message* message, const Content& content);
    void Receive(tern_message* message, const tern_header& request);

    std::chrono::milliseconds m_timeout;
    int m_fd = -1;
    bool m_closed = false;
    uint32_t m_sequence = 0;
    uint64_t m_lastClaim = 0;
    std::map<std::string, Claimed> m_claims;               // by what the service takes for one handle
    std::function<void(const std::string& reason)> m_told; // set: items are kept
};

} // namespace appcfg

#endif
