#include "test_service.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "pl/pl_log.h"

namespace PlatformTest {

namespace {

// The framework's callbacks carry no context; one test runs at a time.
AServer* g_test = nullptr;

void AddBytes(tern_message* msg, const std::string& bytes, std::size_t piece) {
    auto* copy = static_cast<char*>(pcalloc(msg->pool, bytes.size()));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    bytes.copy(copy, bytes.size());
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        tern_content_add(msg, copy + at, static_cast<std::uint32_t>(std::min(piece, bytes.size() - at)), 0);
    }
}

} // namespace

std::string Pattern(std::size_t length) {
    std::string text(length, '\0');
    std::iota(text.begin(), text.end(), '\0');
    return text;
}

AServer::~AServer() {
    Stops();
    kestrel_event_mgr_free(m_mgr);
    EXPECT_EQ(m_closedInMessage, 0);
    EXPECT_EQ(m_closedLate, 0);
    EXPECT_EQ(m_misaligned, 0);
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
        m_stopping = true;
        kestrel_event_mgr_stop(m_mgr);
        m_loop.join();
    }
    return m_runResult;
}

int AServer::Start(kestrel_server* server, void*) {
    static const kestrel_protocol_ops PROTOCOL = {nullptr, Message};
    static const kestrel_connection_ops CONNECTION = {Opened, Closed,
                                                      [](kestrel_connection*) { ++g_test->m_writable; }};
    server->protocol_ops = &PROTOCOL;
    server->connection_ops = &CONNECTION;
    g_test->m_fd = server->fd;
    return 0;
}

void AServer::Opened(kestrel_connection* conn) {
    g_test->m_fd = conn->fd;
    ++g_test->m_opened;
}

void AServer::Closed(kestrel_connection* conn) {
    AServer& test = *g_test;
    std::int32_t pid = 0;
    const bool isOpen = kestrel_ioctl(conn->fd, 0x80040305, &pid) == 0 && pid == ::getpid();
    test.m_closedLate += isOpen ? 0 : 1;
    test.m_closedInMessage += test.m_inMessage ? 1 : 0;
    test.m_closedWhileListening += test.m_stopping && TestClient().IsConnected() ? 1 : 0;
    ++test.m_closed;
}

void AServer::Message(tern_message* msg, kestrel_connection* conn) {
    ++g_test->m_served;
    g_test->m_inMessage = true;
    const std::shared_ptr<void> atEnd(nullptr, [](void*) { g_test->m_inMessage = false; });
    g_test->Serve(msg, conn, static_cast<Method>(msg->header->method & 0x7F));
}

void AServer::Serve(tern_message* msg, kestrel_connection* conn, Method method) {
    void* content = nullptr;
    std::uint32_t length = 0;
    tern_content(msg, &content, &length);
    m_misaligned += reinterpret_cast<std::uintptr_t>(content) % 8 == 0 ? 0 : 1;
    const std::string request(static_cast<char*>(content), length);
    std::uint32_t words[2] = {0, UINT32_MAX};
    std::memcpy(words, request.data(), std::min<std::size_t>(length, sizeof words));
    if (method == THROW) {
        throw std::runtime_error("thrown by the service");
    }
    if (method == HOLD) {
        m_holds = true;
        m_letGo.get_future().wait_for(std::chrono::seconds(20));
    }
    if (method == REFUSE) {
        PL_WriteLog(4, 3, 0, 0, "service", static_cast<int>(words[0]), "%s", request.c_str() + 4);
    }
    tern_header_clear(msg);
    if (method != RETURN_MESSAGE && method != RETURN_AND_CLEAR) {
        tern_content_clear(msg);
    }
    if (method == ECHO || method == GIVE) {
        AddBytes(msg, method == ECHO ? request : Pattern(words[0]), method == ECHO ? length : words[1]);
    }
    msg->header->status = 200;
    msg->header->method = static_cast<std::uint8_t>(msg->header->method | 0x80);
    tern_message_async_send(msg, conn, 0);
    if (method == RETURN_AND_CLEAR) {
        tern_content_clear(msg);
    }
    if (method == ANSWER_AND_THROW) {
        throw std::runtime_error("thrown after the reply");
    }
}

} // namespace PlatformTest
