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
    const std::vector<std::string> lines = log.All();
    return lines.size() == 1 ? lines[0] : "not one line";
}

} // namespace

TEST(ALogLine, HasNoControlBytesSoThatNobodyForgesALine) {
    EXPECT_EQ(Logged("plain\n"), "plain");
    EXPECT_EQ(Logged("two\nlines\n"), "two\\x0alines");
    EXPECT_EQ(Logged("\x1b[31m\x7f\r\t"), "\\x1b[31m\\x7f\\x0d\\x09");
    EXPECT_EQ(Logged("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
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
    EXPECT_EQ(log.All(), (std::vector<std::string>{"information", "shown"}));
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
