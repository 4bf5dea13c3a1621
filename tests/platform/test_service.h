#ifndef TESTS_PLATFORM_TEST_SERVICE_H
#define TESTS_PLATFORM_TEST_SERVICE_H

#include <atomic>
#include <future>
#include <memory>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "kestrel/kestrel_host.h"
#include "pl/pl_log.h"
#include "support/log_lines.h"
#include "support/root_directory.h"
#include "support/test_client.h"

namespace PlatformTest {

using namespace Support;

// What the test service does with a request, by its method.
enum Method : uint8_t {
    ECHO = 1,  // the payload, copied
    GIVE = 2,  // as many bytes as the first word says, in pieces as long as the second says, or in one
    THROW = 3, // throws and does not answer
    ANSWER_AND_THROW = 4,
    HOLD = 5,             // answers once the test lets go
    RETURN_MESSAGE = 6,   // the message as it came: the reply refers to the request's memory
    RETURN_AND_CLEAR = 7, // the same, and clears the content behind the send
    REFUSE = 8,           // logs what follows the first word, from the line that this says
};

// So many bytes that count up.
inline std::string Pattern(size_t length) {
    std::string text(length, '\0');
    std::iota(text.begin(), text.end(), '\0');
    return text;
}

// A service on a loop of its own thread, "test.orb" in a root of its own. Whatever a test does, the service
// meets nothing that the framework rules out.
class AServer : public ::testing::Test {
protected:
    ~AServer() override {
        Stops();
        kestrel_event_mgr_free(m_mgr);
        EXPECT_EQ(m_wrong, 0);
    }

    int Registers(const std::string& name = "test.orb") {
        static const kestrel_server_ops OPS = {Start, nullptr};
        s_test = this;
        return kestrel_server_register(name.c_str(), m_mgr, &OPS);
    }
    // Registers the service and runs its loop until the test ends.
    void Runs() {
        ASSERT_EQ(Registers(), 0);
        m_loop = std::thread([this] { m_runResult = RunsOnThisThread(-1); });
    }
    int RunsOnThisThread(int timeout) { return kestrel_event_mgr_run(m_mgr, timeout); }
    // Asks the loop to stop; what it returned.
    int Stops() {
        if (m_loop.joinable()) {
            m_stopping = true;
            kestrel_event_mgr_stop(m_mgr);
            m_loop.join();
        }
        return m_runResult;
    }

    bool HasClosed(int count) {
        return Eventually([&] { return m_closed == count; });
    }

    RootDirectory m_root;
    LogLines m_log;
    kestrel_event_mgr* m_mgr = kestrel_event_mgr_new(0);
    std::promise<void> m_letGo;
    std::atomic<bool> m_holds{false}; // a request has reached the service
    std::atomic<int> m_served{0};
    std::atomic<int> m_opened{0};
    std::atomic<int> m_closed{0};
    std::atomic<int> m_closedWhileListening{0}; // after the request to stop
    std::atomic<int> m_writable{0};
    std::atomic<int> m_fd{-1}; // of the server, later of the last connection

private:
    static int Start(kestrel_server* server, void*) {
        static const kestrel_protocol_ops PROTOCOL = {
            nullptr, [](tern_message* msg, kestrel_connection* conn) {
                ++s_test->m_served;
                s_test->m_inMessage = true;
                const std::shared_ptr<void> atEnd(nullptr, [](void*) { s_test->m_inMessage = false; });
                s_test->Serve(msg, conn, static_cast<Method>(msg->header->method & 0x7F));
            }};
        static const kestrel_connection_ops CONNECTION = {
            [](kestrel_connection* conn) {
                s_test->m_fd = conn->fd;
                ++s_test->m_opened;
            },
            [](kestrel_connection* conn) { s_test->Closed(conn->fd); },
            [](kestrel_connection*) { ++s_test->m_writable; }};
        server->protocol_ops = &PROTOCOL;
        server->connection_ops = &CONNECTION;
        s_test->m_fd = server->fd;
        return 0;
    }

    // The descriptor is still the connection's own, and no message is being served.
    void Closed(int fd) {
        int32_t pid = 0;
        m_wrong += m_inMessage || kestrel_ioctl(fd, 0x80040305, &pid) != 0 || pid != ::getpid() ? 1 : 0;
        m_closedWhileListening += m_stopping && TestClient().IsConnected() ? 1 : 0;
        ++m_closed;
    }

    static void AddBytes(tern_message* msg, const std::string& bytes, size_t piece) {
        auto* copy = static_cast<char*>(pcalloc(msg->pool, bytes.size()));
        if (copy == nullptr) {
            throw std::bad_alloc();
        }
        bytes.copy(copy, bytes.size());
        for (size_t at = 0; at < bytes.size(); at += piece) {
            tern_content_add(msg, copy + at, static_cast<uint32_t>(std::min(piece, bytes.size() - at)), 0);
        }
    }

    void Serve(tern_message* msg, kestrel_connection* conn, Method method) {
        void* content = nullptr;
        uint32_t length = 0;
        tern_content(msg, &content, &length);
        m_wrong += reinterpret_cast<uintptr_t>(content) % 8 == 0 ? 0 : 1;
        const std::string request(static_cast<char*>(content), length);
        uint32_t words[2] = {0, UINT32_MAX};
        std::memcpy(words, request.data(), std::min<size_t>(length, sizeof words));
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
        msg->header->method = static_cast<uint8_t>(msg->header->method | 0x80);
        tern_message_async_send(msg, conn, 0);
        if (method == RETURN_AND_CLEAR) {
            tern_content_clear(msg);
        }
        if (method == ANSWER_AND_THROW) {
            throw std::runtime_error("thrown after the reply");
        }
    }

    // The framework's callbacks carry no context; one test runs at a time.
    inline static AServer* s_test = nullptr;
    std::thread m_loop;
    int m_runResult = -1;
    bool m_inMessage = false; // loop thread only
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_wrong{
        0}; // what must not be: a close inside a message or too late, content not aligned
};

} // namespace PlatformTest

#endif
