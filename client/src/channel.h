// One descriptor to the service and the exchange of requests and replies on it.
#ifndef APPCFG_CHANNEL_H
#define APPCFG_CHANNEL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "app_cfg_types.h"
#include "appcfg/error.h"
#include "appcfg/handle.h"
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
// not known, so that the descriptor is closed and each further call fails.
class Channel {
public:
    // Connects to the service's path; ConnectionError when that fails.
    explicit Channel(const char* path);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Sends one request and waits for its reply. RequestRefused for a status other than 200.
    Reply Call(Request request, const Handle& handle, const Content& content);

    void Close() noexcept;

private:
    // Closes the descriptor and throws a ConnectionError of the text.
    [[noreturn]] void Fail(const std::string& text);
    void Send(tern_message* message, const Content& content);
    void Receive(tern_message* message, const tern_header& request);

    int m_fd;
    uint32_t m_sequence = 0;
};

} // namespace appcfg

#endif
