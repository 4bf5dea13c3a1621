#ifndef TESTS_PLATFORM_TEST_SERVICE_H
#define TESTS_PLATFORM_TEST_SERVICE_H

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kestrel/kestrel_host.h"
#include "pl/pl_log_control.h"
#include "root_directory.h"
#include "tern/tern.h"
#include "test_client.h"

namespace PlatformTest {

// What the test service does with a request, by its method.
enum Method : std::uint8_t {
    ECHO = 1,  // the payload, copied
    GIVE = 2,  // as many bytes as the first word says
    THROW = 3, // throws and does not answer
    ANSWER_AND_THROW = 4,
    HOLD = 5,            // answers once the test lets go
    GIVE_PIECES = 6,     // as many one-byte pieces as the first word says
    RETURN_MESSAGE = 7,  // the message as it came: the reply refers to the request's memory
    TELL_SEND_BUFFER = 8 // SO_SNDBUF of the connection
};

// The lines that were logged while it lived.
class LogLines {
public:
    LogLines() { pl_log_set_sink(Take, this); }
    ~LogLines() { pl_log_set_sink(nullptr, nullptr); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    std::size_t Count(const std::string& part);
    std::vector<std::string> All();

private:
    static void Take(void* self, int module, int level, const char* file, int line, const char* text);

    std::mutex m_mutex;
    std::vector<std::string> m_lines; // guarded by m_mutex
};

// A service on a loop of its own thread, "test.orb" in a root of its own.
class AServer : public ::testing::Test {
protected:
    ~AServer() override;

    // Registers the service and runs its loop until the test ends.
    void Runs();
    int Registers(const std::string& name = "test.orb");
    int RunsOnThisThread(int timeout) { return kestrel_event_mgr_run(m_mgr, timeout); }
    // Asks the loop to stop; what it returned.
    int Stops();

    // A held request has reached the service.
    bool Holds() {
        return Eventually([this] { return m_holding.load(); });
    }
    void LetsGo();
    bool HasClosed(int count) {
        return Eventually([&] { return m_closed == count; });
    }

    RootDirectory m_root;
    LogLines m_log;
    kestrel_event_mgr* m_mgr = kestrel_event_mgr_new(0);
    std::atomic<int> m_served{0};
    std::atomic<int> m_opened{0};
    std::atomic<int> m_closed{0};
    std::atomic<int> m_writable{0};
    std::atomic<int> m_closedInsideMessage{0};
    std::atomic<int> m_closedWithoutDescriptor{0};
    std::atomic<int> m_closedWhileListening{0};
    std::atomic<int> m_misaligned{0};
    int m_startResult = 0;
    std::uint32_t m_sendBuffer = 0; // asked for by the start callback; 0 leaves the system's

private:
    static int Start(kestrel_server* server, void* arg);
    static void Opened(kestrel_connection* conn);
    static void Closed(kestrel_connection* conn);
    static void Writable(kestrel_connection* conn);
    static void Message(tern_message* msg, kestrel_connection* conn);

    void Serve(tern_message* msg, kestrel_connection* conn, Method method);
    void Hold();

    std::thread m_loop;
    int m_runResult = -1;
    bool m_inMessage = false; // loop thread only
    std::mutex m_mutex;
    std::condition_variable m_released;
    bool m_letGo = false; // guarded by m_mutex
    std::atomic<bool> m_holding{false};
    std::atomic<bool> m_stopping{false};
};

} // namespace PlatformTest

#endif
