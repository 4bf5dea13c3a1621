#include "test_service.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace PlatformTest {

namespace {

AServer* g_test = nullptr;

// The framework's callbacks carry no context; one test runs at a time.
std::uint32_t FirstWord(const void* content, std::uint32_t length) {
    std::uint32_t word = 0;
    if (length > 0) {
        std::memcpy(&word, content, std::min<std::size_t>(length, sizeof word));
    }
    return word;
}

void AddBytes(tern_message* msg, std::uint32_t count) {
    auto* bytes = static_cast<char*>(pcalloc(msg->pool, count));
    std::memset(bytes, 'g', count);
    tern_content_add(msg, bytes, count, 0);
}

void AddPieces(tern_message* msg, std::uint32_t count) {
    static const char ALPHABET[] = "abcdefghijklmnopqrstuvwxyz";
    for (std::uint32_t i = 0; i < count; ++i) {
        tern_content_add(msg, &ALPHABET[i % 26], 1, 0);
    }
}

void AddCopy(tern_message* msg, const void* content, std::uint32_t length) {
    void* copy = pcalloc(msg->pool, length);
    ASSERT_NE(copy, nullptr);
    std::memcpy(copy, content, length);
    tern_content_add(msg, copy, length, 0);
}

void AddSendBuffer(tern_message* msg, int fd) {
    auto* size = static_cast<int*>(pcalloc(msg->pool, sizeof(int)));
    socklen_t length = sizeof *size;
    ::getsockopt(fd, SOL_SOCKET, SO_SNDBUF, size, &length);
    tern_content_add(msg, size, sizeof *size, 0);
}

void Answer(tern_message* msg, kestrel_connection* conn) {
    msg->header->status = 200;
    msg->header->method = static_cast<std::uint8_t>(msg->header->method | 0x80);
    tern_message_async_send(msg, conn, 0);
}

} // namespace

std::size_t LogLines::Count(const std::string& part) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::size_t count = 0;
    for (const std::string& line : m_lines) {
        count += line.find(part) != std::string::npos ? 1U : 0U;
    }
    return count;
}

std::vector<std::string> LogLines::All() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void LogLines::Take(void* self, int, int, const char*, int, const char* text) {
    auto* lines = static_cast<LogLines*>(self);
    const std::lock_guard<std::mutex> lock(lines->m_mutex);
    lines->m_lines.emplace_back(text);
}

AServer::~AServer() {
    Stops();
    kestrel_event_mgr_free(m_mgr);
}

int AServer::Registers(const std::string& name) {
    static const kestrel_server_ops OPS = {Start, nullptr};
    g_test = this;
    return kestrel_server_register(name.c_str(), m_mgr, &OPS);
}

void AServer::Runs() {
    ASSERT_EQ(Registers(), 0);
    m_loop = std::thread([this] { m_runResult = kestrel_event_mgr_run(m_mgr, -1); });
}

int AServer::Stops() {
    if (m_loop.joinable()) {
        LetsGo();
        m_stopping = true;
        kestrel_event_mgr_stop(m_mgr);
        m_loop.join();
    }
    return m_runResult;
}

void AServer::LetsGo() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_letGo = true;
    m_released.notify_all();
}

int AServer::Start(kestrel_server* server, void*) {
    static const kestrel_protocol_ops PROTOCOL = {nullptr, Message};
    static const kestrel_connection_ops CONNECTION = {Opened, Closed, Writable};
    server->protocol_ops = &PROTOCOL;
    server->connection_ops = &CONNECTION;
    if (g_test->m_sendBuffer != 0) {
        std::uint32_t words[3] = {0, 0, g_test->m_sendBuffer};
        EXPECT_EQ(kestrel_ioctl(server->fd, 0x400C0200, words), 0);
        EXPECT_EQ(kestrel_ioctl(server->fd, 0x400C0201, words), 0);
    }
    return g_test->m_startResult;
}

void AServer::Opened(kestrel_connection*) {
    ++g_test->m_opened;
}

void AServer::Closed(kestrel_connection* conn) {
    AServer& test = *g_test;
    std::int32_t pid = 0;
    const bool open = kestrel_ioctl(conn->fd, 0x80040305, &pid) == 0 && pid == ::getpid();
    test.m_closedWithoutDescriptor += open ? 0 : 1;
    test.m_closedInsideMessage += test.m_inMessage ? 1 : 0;
    test.m_closedWhileListening += test.m_stopping && TestClient().IsConnected() ? 1 : 0;
    ++test.m_closed;
}

void AServer::Writable(kestrel_connection*) {
    ++g_test->m_writable;
}

void AServer::Message(tern_message* msg, kestrel_connection* conn) {
    struct Inside {
        Inside() { g_test->m_inMessage = true; }
        ~Inside() { g_test->m_inMessage = false; }
    } inside;
    ++g_test->m_served;
    g_test->Serve(msg, conn, static_cast<Method>(msg->header->method & 0x7F));
}

void AServer::Serve(tern_message* msg, kestrel_connection* conn, Method method) {
    void* content = nullptr;
    std::uint32_t length = 0;
    const bool any = tern_content(msg, &content, &length) == 0;
    m_misaligned += reinterpret_cast<std::uintptr_t>(content) % 8 == 0 ? 0 : 1;
    const std::uint32_t word = FirstWord(content, length);
    if (method == THROW) {
        throw std::runtime_error("thrown by the service");
    }
    if (method == HOLD) {
        Hold();
    }
    tern_header_clear(msg);
    if (method != RETURN_MESSAGE) {
        tern_content_clear(msg);
    }
    if (method == ECHO && any) {
        AddCopy(msg, content, length);
    } else if (method == GIVE) {
        AddBytes(msg, word);
    } else if (method == GIVE_PIECES) {
        AddPieces(msg, word);
    } else if (method == TELL_SEND_BUFFER) {
        AddSendBuffer(msg, conn->fd);
    }
    Answer(msg, conn);
    if (method == ANSWER_AND_THROW) {
        throw std::runtime_error("thrown after the reply");
    }
}

void AServer::Hold() {
    m_holding = true;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_released.wait(lock, [this] { return m_letGo; });
}

} // namespace PlatformTest
