#include "channel.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "kestrel/kestrel.h"

namespace appcfg {
namespace {

constexpr uint8_t REPLY_BIT = 0x80;
constexpr uint32_t MAX_PAYLOAD = 16U << 20;

struct Address {
    SystemServer::AppCfgUri uri;
    SystemServer::AppCfgMethod method;
};

Address AddressOf(Request request) {
    using namespace SystemServer;
    switch (request) {
    case Request::CREATE:
        return {APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE};
    case Request::DELETE_ITEM:
        return {APP_CFG_URI_ITEM, APP_CFG_METHOD_DELETE};
    case Request::GET:
        return {APP_CFG_URI_DATA, APP_CFG_METHOD_GET};
    case Request::SET:
        return {APP_CFG_URI_DATA, APP_CFG_METHOD_SET};
    case Request::RAW_GET:
        return {APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_GET};
    case Request::RAW_SET:
        return {APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_SET};
    case Request::RESTORE:
        return {APP_CFG_URI_DEFAULT, APP_CFG_METHOD_SET};
    case Request::CHANGE_KEY:
        return {APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET};
    }
    throw InvalidArgument("no such request");
}

std::string ErrnoText(int error) {
    return error == 0 ? "the connection was closed" : std::generic_category().message(error);
}

// The path as given; the framework may look it up elsewhere.
std::string PathText(const char* path) {
    const char* root = std::getenv("KESTREL_ROOT");
    return std::string(path) + (root != nullptr ? std::string(" with KESTREL_ROOT=") + root : "");
}

Message NewMessage() {
    Message message(tern_message_new(0));
    if (!message) {
        throw std::bad_alloc();
    }
    return message;
}

} // namespace

Channel::Channel(const char* path) : m_fd(kestrel_open(path, O_RDWR)) {
    if (m_fd < 0) {
        const int error = errno;
        throw ConnectionError("cannot reach the service at " + PathText(path) + ": " + ErrnoText(error));
    }
}

Channel::~Channel() {
    Close();
}

void Channel::Close() noexcept {
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

Reply Channel::Call(Request request, const Handle& handle, const Content& content) {
    const size_t textSize = content.text != nullptr ? content.text->size() + 1 : 0;
    if (textSize > MAX_PAYLOAD - content.size) {
        throw InvalidArgument("the data has " + std::to_string(textSize) + " bytes; a request holds 16 MiB");
    }
    if (m_fd < 0) {
        throw ConnectionError("the connection is closed");
    }
    const Address address = AddressOf(request);
    Reply reply;
    reply.message = NewMessage();
    tern_header& header = *reply.message->header;
    header.kind = 0;
    header.method = address.method;
    header.uri = address.uri;
    header.sequence = ++m_sequence;
    const tern_header sent = header;
    Send(reply.message.get(), content);
    Receive(reply.message.get(), sent);

    const uint16_t status = reply.message->header->status;
    if (status != SystemServer::APP_CFG_STATUS_OK) {
        throw RequestRefused(request, handle.ToString(), status);
    }
    void* bytes = nullptr;
    uint32_t size = 0;
    if (tern_content(reply.message.get(), &bytes, &size) == 0) {
        reply.content = bytes;
        reply.size = size;
    }
    return reply;
}

void Channel::Fail(const std::string& text) {
    Close();
    throw ConnectionError(text);
}

void Channel::Send(tern_message* message, const Content& content) {
    int result = tern_content_add(message, content.record, static_cast<uint32_t>(content.size), 0);
    if (result == 0 && content.text != nullptr) {
        const uint32_t size = static_cast<uint32_t>(content.text->size() + 1);
        result = tern_content_add(message, content.text->c_str(), size, 0);
    }
    if (result != 0) {
        throw std::bad_alloc();
    }
    errno = 0;
    if (tern_message_sendfd(message, m_fd) < 0) {
        Fail("cannot send to the service: " + ErrnoText(errno));
    }
}

void Channel::Receive(tern_message* message, const tern_header& request) {
    errno = 0;
    if (tern_message_recvfd(message, m_fd) < 0) {
        Fail("no reply from the service: " + ErrnoText(errno));
    }
    const tern_header& reply = *message->header;
    if (reply.method != (request.method | REPLY_BIT) || reply.uri != request.uri ||
        reply.sequence != request.sequence) {
        Fail("the service answered another request than the one it was sent");
    }
}

} // namespace appcfg
