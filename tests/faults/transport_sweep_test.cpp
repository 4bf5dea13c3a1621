#include <event2/event.h>

#include <cstdlib>

#include "platform/test_service.h"
#include "support/injection.h"

extern "C" {
FORWARDED(void*, calloc, ALLOCATION, nullptr, (size_t count, size_t size), (count, size))
FORWARDED(void*, realloc, ALLOCATION, nullptr, (void* memory, size_t size), (memory, size))
}

namespace PlatformTest {

// A frame that grows, replies that wait, a frame that is cut off, and the end.
TEST_F(AServer, ClosesAtMostTheConnectionThatFindsNoMemory) {
    static std::atomic<int> lines{0};
    const FaultTest::Exempt exempt;
    ::event_set_mem_functions([](size_t size) { return __wrap_realloc(nullptr, size); }, __wrap_realloc,
                              std::free);
    pl_log_set_sink([](void*, int, int, const char*, int, const char*) { ++lines; }, nullptr);
    kestrel_event_mgr_free(std::exchange(m_mgr, kestrel_event_mgr_new(0)));
    Runs();
    TestClient honest[2];
    const auto areServed = [&] { return honest[0].Asks(ECHO, "served") && honest[1].Asks(ECHO, "too"); };
    ASSERT_TRUE(areServed());
    const std::string sent = Frame(ECHO, Pattern(40'000)) + Frame(GIVE, Bytes(900'000)) +
                             Frame(RETURN_MESSAGE, Pattern(20'000)) + Frame(ECHO, "cut off").substr(0, 28);
    for (const bool forEver : {false, true}) {
        bool reached = true;
        SCOPED_TRACE(forEver);
        for (int at = 1; reached && !HasFailure(); ++at) {
            lines = 0;
            {
                const FaultTest::Injection injection({FaultTest::Call::ALLOCATION, at, forEver, 0});
                TestClient asker;
                asker.Sends(sent);
                asker.ShutDownWriting();
                while (asker.Receives()) {
                }
            }
            reached = FaultTest::Failures() > 0;
            EXPECT_TRUE(areServed()) << at;
            EXPECT_TRUE(HasClosed(m_opened - 2)) << at;
            EXPECT_LT(lines, 10) << at;
        }
    }
}

} // namespace PlatformTest
