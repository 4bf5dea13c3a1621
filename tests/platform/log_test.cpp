#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>

#include "pl/pl_log.h"
#include "test_service.h"

namespace PlatformTest {

namespace {

std::string Logged(const std::string& text) {
    LogLines log;
    PL_WriteLog(4, 3, 0, 0, "some/file", 12, "%s", text.c_str());
    const Lines lines = log.Of();
    return lines.size() == 1 ? lines[0].substr(2) : "not one line";
}

// Lines with this at their end, and those that the log says were dropped.
int Accounted(const std::string& log, const std::string& end) {
    int count = 0;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.compare(0, 2, "20"), 0) << "begins without its time: " << line;
        const std::size_t behind = std::min(line.find(" more lines were"), line.find(" lines were dropped"));
        count += behind != std::string::npos ? std::stoi(line.substr(line.rfind(' ', behind - 1)))
                                             : static_cast<int>(line.rfind(end) + end.size() == line.size());
    }
    return count;
}

} // namespace

// Repeats are dropped and counted; what is no repeat is written whatever was before.
TEST_F(AServer, LetsClientsFillTheLogOnlySoFast) {
    pl_log_set_sink(nullptr, nullptr);
    ::testing::internal::CaptureStderr();
    Runs();
    for (int client = 0; client < 3; ++client) {
        TestClient flood;
        for (int i = 0; i < 600; ++i) {
            ASSERT_TRUE(flood.Asks(REFUSE));
        }
        ASSERT_TRUE(flood.Sends(Frame(THROW)) && flood.MeetsEnd());
    }
    Stops();
    kestrel_event_mgr_free(std::exchange(m_mgr, nullptr));
    const std::string log = ::testing::internal::GetCapturedStderr();
    // Two places may share one count: the dropped lines are then some of the other's, too.
    EXPECT_THAT(Accounted(log, " refused"), ::testing::AllOf(::testing::Ge(3 * 600), ::testing::Le(3 * 602)));
    for (const char* line : {"more lines were dropped", "callback threw: ", "went unanswered, closed"}) {
        EXPECT_GE(Accounted(log, line), 3) << line;
    }
}

// Some lines are longer than a pipe takes at once, so that one is cut.
TEST(ALogLine, IsDroppedAndCountedWhenNobodyReads) {
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    const int kept = ::dup(STDERR_FILENO);
    ::dup2(pipe[1], STDERR_FILENO);
    const auto write = [](int lines) {
        for (int i = 0; i < lines; ++i) {
            PL_WriteLog(4, 3, 0, 0, "f", 1, "%s.", std::string(i % 2 == 0 ? 10 : 9000, 'w').c_str());
        }
    };
    const auto begin = std::chrono::steady_clock::now();
    std::thread other(write, 300);
    write(300);
    other.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)); // 100 ms for each are 60 s
    std::string log(1U << 20, '\0');
    const ssize_t before = ::read(pipe[0], log.data(), log.size());
    write(1);
    const ssize_t after = ::read(pipe[0], log.data() + before, log.size() / 2);
    log.resize(static_cast<std::size_t>(before + after));
    ::dup2(kept, STDERR_FILENO);
    for (const int fd : {kept, pipe[0], pipe[1]}) {
        ::close(fd);
    }
    EXPECT_EQ(Accounted(log, "w."), 601);
}

TEST(ALogLine, HasNoControlBytesSoThatNobodyForgesALine) {
    EXPECT_EQ(Logged("plain\n"), "plain");
    EXPECT_EQ(Logged("two\nlines\n"), "two\\x0alines");
    EXPECT_EQ(Logged("\x1b[31m\x7f\r\t"), "\\x1b[31m\\x7f\\x0d\\x09");
    for (const char* shown : {"gr\xc3\xbc\xc3\x9f", "\xc2\xa0", "\xe2\x82\xac", "\xf0\x9f\x99\x82"}) {
        EXPECT_EQ(Logged(shown), shown);
    }
    EXPECT_EQ(Logged("\xc2\x80\xc2\x9b\xc2\x9f"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f");
    EXPECT_EQ(Logged("\x9b\xe0\x82\x9b\xf0\x80"), "\\x9b\\xe0\\x82\\x9b\\xf0\\x80");
    EXPECT_EQ(Logged("\n\n"), "\\x0a");
    EXPECT_EQ(Logged(""), "");
}

TEST(ALogLine, IsWholeUpTo64KiB) {
    for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 16384U, 65536U}) {
        EXPECT_EQ(Logged(std::string(length, 'x')), std::string(length, 'x')) << length;
    }
    EXPECT_EQ(Logged(std::string(200'000, 'x')).size(), 65536U);
    EXPECT_EQ(Logged(std::string(20'000, '\n')).size(), 19'999U * 4);
}

TEST(ALogLine, BelowTheLevelIsDropped) {
    LogLines log;
    PL_WriteLog(4, 0, 0, 0, "f", 1, "trace");
    PL_WriteLog(4, 1, 0, 0, "f", 1, "information");
    pl_log_set_level(3);
    PL_WriteLog(4, 1, 0, 0, "f", 1, "dropped");
    pl_log_set_level(0);
    PL_WriteLog(4, 0, 0, 0, "f", 1, "shown");
    pl_log_set_level(1);
    EXPECT_EQ(log.Of({}, 0), (Lines{"1 information", "0 shown"}));
}

// A sink may log itself: once, and not for ever.
TEST(ALogLine, MayBeWrittenFromASink) {
    static int depth = 0;
    depth = 0;
    pl_log_set_sink(
        [](void*, int, int, const char*, int, const char*) {
            if (++depth == 1) {
                PL_WriteLog(4, 3, 0, 0, "f", 1, "inner");
            }
        },
        nullptr);
    PL_WriteLog(4, 3, 0, 0, "f", 1, "outer");
    pl_log_set_sink(nullptr, nullptr);
    EXPECT_EQ(depth, 2);
}

TEST(ALogLine, OnStandardErrorIsWholeFromManyThreads) {
    ::testing::internal::CaptureStderr();
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                errno = ENOSPC;
                PL_WriteLog(4, 3, 0, 0, "dir/file", 7, "writer %d %s", t, std::string(1500, 'w').c_str());
                EXPECT_EQ(errno, ENOSPC);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    std::istringstream lines(::testing::internal::GetCapturedStderr());
    const std::string shape = "....-..-..T..:..:..\\....Z 4 3 dir/file:7 writer [0-3] w+";
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line.size(), 1549U) << line;
        ASSERT_THAT(line, ::testing::MatchesRegex(shape));
    }
    EXPECT_EQ(count, 400);
}

} // namespace PlatformTest
