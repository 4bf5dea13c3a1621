#include <sys/stat.h>

#include <sstream>

#include "test_service.h"

namespace PlatformTest {

namespace {

std::string Logged(const std::string& text) {
    LogLines log;
    PL_WriteLog(4, 3, 0, 0, "some/file", 12, "%s", text.c_str());
    const Lines lines = log.Of();
    return lines.size() == 1 ? lines[0].substr(2) : "not one line";
}

// How many lines hold the text, and how many more the log says were dropped.
struct Tally {
    int written = 0;
    int dropped = 0;
};

Tally Count(const std::string& log, const std::string& text) {
    Tally tally;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.find("Z "), 23U) << "does not begin with its time: " << line;
        EXPECT_EQ(line.rfind("Z "), 23U) << "two lines in one: " << line;
        const size_t behind = std::min(line.find(" more lines were"), line.find(" lines were dropped"));
        if (behind != std::string::npos) {
            tally.dropped += std::stoi(line.substr(line.rfind(' ', behind - 1)));
        }
        tally.written += line.find(text) != std::string::npos ? 1 : 0;
    }
    return tally;
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
            ASSERT_TRUE(flood.Asks(REFUSE, Bytes(1) + "again"));
        }
        for (uint32_t place = 2; place < 120; ++place) {
            ASSERT_TRUE(flood.Asks(REFUSE, Bytes(place) + "once"));
        }
        ASSERT_TRUE(flood.Asks(ANSWER_AND_THROW));
        ASSERT_TRUE(flood.Sends(Frame(THROW)) && flood.MeetsEnd());
    }
    Stops();
    kestrel_event_mgr_free(std::exchange(m_mgr, nullptr));
    const std::string log = ::testing::internal::GetCapturedStderr();
    const Tally repeats = Count(log, "again");
    EXPECT_EQ(repeats.written + repeats.dropped, 3 * 600);
    EXPECT_GT(repeats.dropped, 0);
    EXPECT_EQ(Count(log, "once").written, 3 * 118);
    for (const char* line : {"thrown after the reply", "thrown by the service", "went unanswered, closed"}) {
        EXPECT_EQ(Count(log, line).written, 3) << line;
    }
}

// Some lines are longer than a pipe takes at once, so that one is cut.
TEST_F(AServer, GoesOnWhenNobodyReadsItsLog) {
    pl_log_set_sink(nullptr, nullptr);
    Runs();
    const std::string pipe = m_root.Of("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const bool isTerminal : {false, true}) {
        constexpr int FLAGS = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
        const TestClient reader(isTerminal ? ::posix_openpt(O_RDWR | FLAGS) : ::open(pipe.c_str(), FLAGS));
        ::unlockpt(reader.Fd());
        const TestClient writer(
            ::open(isTerminal ? ::ptsname(reader.Fd()) : pipe.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
        const TestClient former(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        ::dup2(writer.Fd(), STDERR_FILENO);
        std::string log;
        const auto reads = [&] {
            char piece[4096];
            for (ssize_t got = 0; (got = ::read(reader.Fd(), piece, sizeof piece)) > 0;) {
                log.append(piece, static_cast<size_t>(got));
            }
            return Count(log, "w.");
        };
        TestClient client;
        const auto begin = std::chrono::steady_clock::now();
        for (uint32_t i = 0; i < 300; ++i) {
            EXPECT_TRUE(client.Asks(REFUSE, Bytes(i) + std::string(i % 2 == 0 ? 10 : 9000, 'w') + '.'));
        }
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)); // at 100 ms each 30 s
        EXPECT_TRUE(Eventually([&] { return reads().written > 0; }));
        EXPECT_TRUE(client.Asks(REFUSE, Bytes(300) + "w."));
        EXPECT_TRUE(Eventually([&] {
            const Tally tally = reads();
            return tally.dropped > 0 && tally.written + tally.dropped == 301;
        })) << (isTerminal ? "terminal" : "pipe");
        ::dup2(former.Fd(), STDERR_FILENO);
    }
}

TEST(ALogLine, HasNoControlBytesSoThatNobodyForgesALine) {
    EXPECT_EQ(Logged("plain\n"), "plain");
    EXPECT_EQ(Logged("two\nlines\n"), "two\\x0alines");
    EXPECT_EQ(Logged("\x1b[31m\x7f\r\t"), "\\x1b[31m\\x7f\\x0d\\x09");
    const std::string shown = "gr\xc3\xbc\xc3\x9f \xc2\xa0 \xe2\x82\xac \xf0\x9f\x99\x82";
    EXPECT_EQ(Logged(shown), shown);
    EXPECT_EQ(Logged("\xc2\x80\xc2\x9b\xc2\x9f"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f");
    EXPECT_EQ(Logged("\x9b\xe0\x82\x9b\xf0\x80"), "\\x9b\\xe0\\x82\\x9b\\xf0\\x80");
    EXPECT_EQ(Logged("\n\n"), "\\x0a");
    EXPECT_EQ(Logged(""), "");
}

TEST(ALogLine, IsWholeUpTo64KiB) {
    for (const size_t length : {1022U, 1023U, 1024U, 1025U, 16384U, 65536U}) {
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
    const auto sink = [](void*, int, int, const char*, int, const char*) {
        if (++depth == 1) {
            PL_WriteLog(4, 3, 0, 0, "f", 1, "inner");
        }
    };
    pl_log_set_sink(sink, nullptr);
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
    const std::string log = ::testing::internal::GetCapturedStderr();
    const std::regex line("....-..-..T..:..:..\\....Z 4 3 dir/file:7 writer [0-3] w{1500}\n");
    const std::sregex_iterator begin(log.begin(), log.end(), line);
    EXPECT_EQ(std::distance(begin, {}), 400);
    EXPECT_EQ(log.size(), 400U * 1550);
}

} // namespace PlatformTest
