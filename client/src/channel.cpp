// One request is on its way at a time, and its reply must carry the request's method, URI and sequence. After
// any failure in between nobody knows where in the stream the next reply begins, so that the channel closes
// and stays closed. The time-out bounds a whole exchange; it is handed to the socket, whose calls keep it.
#include "channel.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "app_cfg_wire.h"
#include "appcfg/value.h"
#include "kestrel/kestrel.h"

namespace appcfg {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char FRAMEWORK_ROOT[] = "/mnt/kestrel/";
constexpr std::chrono::milliseconds LONGEST_PAUSE = 100ms;
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

// Where the framework looks the service up, for a message.
std::string PathTried() {
    const char* set = std::getenv("KESTREL_ROOT");
    std::string path = set == nullptr || *set == '\0' ? FRAMEWORK_ROOT : set;
    path += path.back() == '/' ? "" : "/";
    return path + SystemServer::APP_CFG_SERVICE_NAME;
}

// A full queue of clients is EAGAIN, and the kernel does not tell when it has room again.
int OpenBefore(Clock::time_point deadline) {
    const std::string path = std::string(FRAMEWORK_ROOT) + SystemServer::APP_CFG_SERVICE_NAME;
    for (std::chrono::milliseconds pause = 1ms;; pause = std::min(2 * pause, LONGEST_PAUSE)) {
        const int fd = kestrel_open(path.c_str(), O_RDWR | O_NONBLOCK);
        if (fd >= 0 || errno != EAGAIN || Clock::now() >= deadline) {
            return fd;
        }
        std::this_thread::sleep_until(std::min(Clock::now() + pause, deadline));
    }
}

std::string JoinedName(const Handle& handle) {
    return handle.Owner() + "." + handle.Name() + "." + std::to_string(handle.Index());
}

Message NewMessage() {
    Message message(tern_message_new(0));
    if (!message) {
        throw std::bad_alloc();
    }
    return message;
}

} // namespace

Channel::Channel(std::chrono::milliseconds timeout) : m_timeout(timeout) {
    if (timeout < 1ms || timeout > 24h) {
        throw InvalidArgument("a time-out is from 1 ms to 24 h");
    }
}

Channel::~Channel() {
    Close();
}

void Channel::Connect() {
    if (m_closed) {
        throw ConnectionError("the connection is closed");
    }
    if (m_fd >= 0) {
        return;
    }
    m_fd = OpenBefore(Clock::now() + m_timeout);
    if (m_fd < 0) {
        const int error = errno;
        FailWith("cannot reach the service at " + PathTried(), error);
    }
    if (fcntl(m_fd, F_SETFL, 0) != 0) {
        FailWith("cannot wait for the service", errno);
    }
}

// The next message takes until the deadline at most, which is EAGAIN then.
void Channel::BoundWaits(int option, Clock::time_point deadline) {
    const auto left =
        std::max<Clock::duration>(deadline - Clock::now(), 1us); // none at all would be for ever
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(left / 1s);
    limit.tv_usec = static_cast<suseconds_t>(left % 1s / 1us);
    if (setsockopt(m_fd, SOL_SOCKET, option, &limit, sizeof(limit)) != 0) {
        FailWith("cannot limit the time of a request", errno);
    }
}

void Channel::Close() noexcept {
    m_closed = true;
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}

void Channel::KeepItems(std::function<void(const std::string& reason)> told) {
    m_told = std::move(told);
}

uint64_t Channel::Claim(const Handle& handle, const SecretRecord<SystemServer::AppCfgCreateReq>& record) {
    Disclaim(handle);
    m_claims.emplace(JoinedName(handle), Claimed{++m_lastClaim, handle, {}});
    if (m_told) {
        m_claims.at(JoinedName(handle)).record = record;
    }
    return m_lastClaim;
}

void Channel::NoteKey(const Handle& handle, const SystemServer::AppCfgCryptoUpdateReq& update) {
    const auto found = m_claims.find(JoinedName(handle));
    if (found != m_claims.end()) {
        found->second.record.Get().cryptoType = update.cryptoType;
        found->second.record.Get().cryptoParam = update.cryptoParam;
    }
}

void Channel::Disclaim(const Handle& handle) {
    m_claims.erase(JoinedName(handle));
}

bool Channel::IsClaimed(const Handle& handle, uint64_t claim) const {
    const auto found = m_claims.find(JoinedName(handle));
    return found != m_claims.end() && found->second.number == claim;
}

Reply Channel::Call(Request request, const Handle& handle, const Content& content) {
    if (!m_told) {
        return CallOnce(request, handle, content);
    }
    try {
        return CallOnce(request, handle, content);
    } catch (const TimeoutError&) {
        throw;
    } catch (const ConnectionError& lost) {
        ConnectAgain(lost.what());
    }
    return CallOnce(request, handle, content);
}

// The service may take a while to be there again. In the order of their creation: one may replace another.
void Channel::ConnectAgain(const std::string& reason) {
    const Clock::time_point deadline = Clock::now() + m_timeout;
    for (std::chrono::milliseconds pause = 1ms;; pause = std::min(2 * pause, LONGEST_PAUSE)) {
        m_closed = false;
        try {
            Connect();
            break;
        } catch (const ConnectionError&) {
            if (Clock::now() >= deadline) {
                throw;
            }
        }
        std::this_thread::sleep_until(std::min(Clock::now() + pause, deadline));
    }
    std::map<uint64_t, const Claimed*> inOrder;
    for (const auto& [name, claimed] : m_claims) {
        if (claimed.record.Get().cfgPath[0] != '\0') { // created since items are kept
            inOrder.emplace(claimed.number, &claimed);
        }
    }
    std::exception_ptr refusal; // of one item: the others are made all the same
    for (const auto& [number, claimed] : inOrder) {
        try {
            CallOnce(Request::CREATE, claimed->handle,
                     {&claimed->record.Get(), sizeof(claimed->record.Get()), nullptr});
        } catch (const RequestRefused&) {
            refusal = std::current_exception();
        }
    }
    m_told(reason);
    if (refusal) {
        std::rethrow_exception(refusal);
    }
}

Reply Channel::CallOnce(Request request, const Handle& handle, const Content& content) {
    const size_t textSize = content.text != nullptr ? content.text->size() + 1 : 0;
    if (textSize > MAX_PAYLOAD - content.size) {
        throw InvalidArgument("the data has " + std::to_string(textSize) + " bytes; a request holds 16 MiB");
    }
    Connect();
    const Address address = AddressOf(request);
    Reply reply;
    reply.message = NewMessage();
    tern_header& header = *reply.message->header;
    header.kind = 0;
    header.method = address.method;
    header.uri = address.uri;
    header.sequence = ++m_sequence;
    const tern_header sent = header;
    const Clock::time_point deadline = Clock::now() + m_timeout;
    BoundWaits(SO_SNDTIMEO, deadline);
    Send(reply.message.get(), content);
    BoundWaits(SO_RCVTIMEO, deadline);
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

void Channel::Fail(const std::string& what, const std::string& why) {
    Close();
    throw ConnectionError(what + ": " + why);
}

void Channel::FailWith(const std::string& what, int error) {
    if (error != EAGAIN) {
        Fail(what, ErrnoText(error));
    }
    Close();
    throw TimeoutError(what + ": time-out after " +
                       FormatValue(std::chrono::duration<double>(m_timeout).count()) + " s");
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
        FailWith("cannot send to the service", errno);
    }
}

void Channel::Receive(tern_message* message, const tern_header& request) {
    errno = 0;
    if (tern_message_recvfd(message, m_fd) < 0) {
        FailWith("no reply from the service", errno);
    }
    const tern_header& reply = *message->header;
    if (reply.method != (request.method | REPLY_BIT) || reply.uri != request.uri ||
        reply.sequence != request.sequence) {
        Fail("no reply from the service", "it answered another request than the one it was sent");
    }
}

} // namespace appcfg
