#ifndef TESTS_PLATFORM_TEST_SERVICE_H
#define TESTS_PLATFORM_TEST_SERVICE_H

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "kestrel/kestrel_host.h"
#include "pl/pl_log_control.h"
#include "support/log_lines.h"
#include "support/root_directory.h"
#include "support/test_client.h"
#include "tern/tern.h"

namespace PlatformTest {

using namespace Support;

// What the test service does with a request, by its method.
enum Method : std::uint8_t {
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
std::string Pattern(std::size_t length);

// A service on a loop of its own thread, "test.orb" in a root of its own. Whatever a test does, the service
// meets nothing that the framework rules out.
class AServer : public ::testing::Test {
protected:
    ~AServer() override;

    // Registers the service and runs its loop until the test ends.
    void Runs();
    int Registers(const std::string& name = "test.orb");
    int RunsOnThisThread(int timeout) { return kestrel_event_mgr_run(m_mgr, timeout); }
    // Asks the loop to stop; what it returned.
    int Stops();

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
    static int Start(kestrel_server* server, void* arg);
    static void Opened(kestrel_connection* conn);
    static void Closed(kestrel_connection* conn);
    static void Message(tern_message* msg, kestrel_connection* conn);

    void Serve(tern_message* msg, kestrel_connection* conn, Method method);

    std::thread m_loop;
    int m_runResult = -1;
    bool m_inMessage = false; // loop thread only
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_closedInMessage{0};
    std::atomic<int> m_closedLate{0}; // when the descriptor was another's, or none
    std::atomic<int> m_misaligned{0};
};

} // namespace PlatformTest

#endif
