#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "securec/securec.h"
#include "tern/tern.h"
#include "test_client.h"

namespace PlatformTest {

namespace {

std::uint32_t Word(const void* at) {
    std::uint32_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

} // namespace

class AMessage : public ::testing::Test {
protected:
    AMessage() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends.data()), 0);
        const timeval deadline{20, 0};
        ::setsockopt(m_ends[1], SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    }
    ~AMessage() override {
        tern_message_put(m_msg);
        Close(0);
        Close(1);
    }

    void Close(std::size_t end) {
        if (m_ends[end] >= 0) {
            ::close(m_ends[end]);
            m_ends[end] = -1;
        }
    }
    void Add(const std::string& literal) {
        auto* copy = static_cast<char*>(pcalloc(m_msg->pool, literal.size()));
        std::memcpy(copy, literal.data(), literal.size());
        ASSERT_EQ(tern_content_add(m_msg, copy, static_cast<std::uint32_t>(literal.size()), 0), 0);
    }
    void Peer(const std::string& bytes) {
        ASSERT_EQ(::write(m_ends[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    int Receives() { return tern_message_recvfd(m_msg, m_ends[1]); }
    std::string Payload() {
        void* content = nullptr;
        std::uint32_t length = 0;
        return tern_content(m_msg, &content, &length) == 0 ? std::string(static_cast<char*>(content), length)
                                                           : "none";
    }

    tern_message* m_msg = tern_message_new(0);
    std::array<int, 2> m_ends{-1, -1};
};

using APool = AMessage;
using AReceivedMessage = AMessage;

TEST_F(AMessage, ShowsItsPiecesAsOneSection) {
    Add("four");
    Add("/a/path");
    EXPECT_EQ(Payload(), "four/a/path");
    const auto* record = static_cast<const char*>(tern_content_struct(m_msg, 0, 8));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(Word(record), 2U);
    EXPECT_EQ(Word(record + 4), 4U);
    EXPECT_STREQ(std::string(static_cast<char*>(tern_content_struct(m_msg, 12, 7)), 7).c_str(), "/a/path");
    Add("more");
    EXPECT_EQ(Payload(), "four/a/pathmore");
    tern_content_clear(m_msg);
    EXPECT_EQ(Payload(), "none");
    EXPECT_EQ(Word(tern_content_struct(m_msg, 0, 8)), 0U);
    EXPECT_EQ(tern_content_struct(m_msg, 8, 1), nullptr);
}

TEST_F(AMessage, ClearsStatusAndReplyBitAlone) {
    *m_msg->header = {0x4E54, 0, 0x83, 4, 404, 99, 8};
    tern_header_clear(m_msg);
    EXPECT_EQ(m_msg->header->method, 3);
    EXPECT_EQ(m_msg->header->status, 0);
    EXPECT_EQ(m_msg->header->uri, 4);
    EXPECT_EQ(m_msg->header->sequence, 99U);
}

TEST_F(AMessage, RefusesAPayloadBeyondTheLargest) {
    const std::string half(8U << 20, 'h');
    const auto add = [&](std::uint32_t length) { return tern_content_add(m_msg, half.data(), length, 0); };
    EXPECT_EQ(add(8U << 20), 0);
    EXPECT_NE(add((8U << 20) + 1), 0);
    EXPECT_NE(add(UINT32_MAX), 0);
    EXPECT_EQ(add(8U << 20), 0);
    EXPECT_NE(add(1), 0);
    EXPECT_NE(tern_content_add(m_msg, nullptr, 1, 0), 0);
    EXPECT_EQ(Payload().size(), 16U << 20);
}

TEST_F(AReceivedMessage, YieldsRangesOfItsSectionAndNoOther) {
    Peer(Frame(2, "0123456789"));
    ASSERT_EQ(Receives(), 0);
    const auto at = [&](std::uint32_t offset, std::uint32_t length) {
        return tern_content_struct(m_msg, offset, length);
    };
    EXPECT_EQ(Word(at(0, 8)), 1U);
    EXPECT_EQ(*static_cast<char*>(at(17, 1)), '9');
    EXPECT_NE(at(0, 18), nullptr);
    EXPECT_NE(at(18, 0), nullptr);
    EXPECT_EQ(at(18, 1), nullptr);
    EXPECT_EQ(at(0, 19), nullptr);
    EXPECT_EQ(at(19, 0), nullptr);
    EXPECT_EQ(at(8, UINT32_MAX - 7), nullptr);
    EXPECT_EQ(at(UINT32_MAX, 2), nullptr);
}

TEST_F(AReceivedMessage, ReplacesHeaderAndContent) {
    Add("what was here before");
    void* memory = pcalloc(m_msg->pool, 100);
    tern_header* header = m_msg->header;
    Peer(Frame(2, "first", 1) + Frame(3, "", 2) + Frame(4, std::string(100'000, 'x'), 3).substr(0, 60'000));
    ASSERT_EQ(Receives(), 0);
    EXPECT_EQ(Payload(), "first");
    ASSERT_EQ(Receives(), 0);
    EXPECT_EQ(Payload(), "none");
    EXPECT_EQ(header->sequence, 2U);
    std::thread rest([this] { Peer(Frame(4, std::string(100'000, 'x'), 3).substr(60'000)); });
    EXPECT_EQ(Receives(), 0);
    rest.join();
    EXPECT_EQ(Payload(), std::string(100'000, 'x'));
    std::memset(memory, 1, 100); // the pool lives as long as the message
}

TEST_F(AReceivedMessage, KeepsItsContentInFrontOfAddedPieces) {
    Peer(Frame(2, "came"));
    ASSERT_EQ(Receives(), 0);
    Add("+added");
    EXPECT_EQ(Payload(), "came+added");
    EXPECT_EQ(Word(tern_content_struct(m_msg, 0, 8)), 2U);
}

TEST_F(AReceivedMessage, FailsOnBadAndCutFrames) {
    std::string wrongMagic = Frame(2, "x");
    wrongMagic[0] = 'x';
    std::string tooShort = Frame(2).substr(0, 16); // answered although nothing follows it
    tooShort[12] = 7;
    std::string tooLong = Frame(2).substr(0, 16);
    tooLong.replace(12, 4, Bytes((16U << 20) + 9));
    for (const std::string& frame : {wrongMagic, tooShort, tooLong}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        EXPECT_EQ(::write(ends[0], frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
        EXPECT_LT(tern_message_recvfd(m_msg, ends[1]), 0);
        ::close(ends[0]);
        ::close(ends[1]);
    }
    Peer(Frame(2, "cut off").substr(0, 30));
    Close(0);
    EXPECT_LT(Receives(), 0);
    EXPECT_EQ(Payload(), "none");
    EXPECT_LT(tern_message_recvfd(m_msg, -1), 0);
}

TEST_F(AMessage, CrossesASocketWholeWithMorePiecesThanOneCallTakes) {
    static const char DIGITS[] = "0123456789";
    for (int i = 0; i < 400'000; ++i) {
        ASSERT_EQ(tern_content_add(m_msg, &DIGITS[i % 10], 1, 0), 0);
    }
    m_msg->header->sequence = 5;
    std::thread sender([this] { EXPECT_GE(tern_message_sendfd(m_msg, m_ends[0]), 0); });
    tern_message* received = tern_message_new(0);
    EXPECT_GE(tern_message_recvfd(received, m_ends[1]), 0);
    sender.join();
    EXPECT_EQ(received->header->sequence, 5U);
    EXPECT_EQ(received->header->length, 400'008U);
    EXPECT_EQ(Word(tern_content_struct(received, 0, 8)), 400'000U);
    EXPECT_EQ(std::memcmp(tern_content_struct(received, 8 + 399'990, 10), DIGITS, 10), 0);
    tern_message_put(received);
}

TEST_F(AMessage, CannotBeSentToAVanishedPeer) {
    Close(1);
    EXPECT_LT(tern_message_sendfd(m_msg, m_ends[0]), 0);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(AReceivedMessage, IsNotDisturbedBySignals) {
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, &former); // without SA_RESTART
    const pthread_t receiver = ::pthread_self();
    std::thread peer([&] {
        for (const char byte : Frame(2, "in small bites")) {
            ::pthread_kill(receiver, SIGUSR1);
            Peer(std::string(1, byte));
        }
    });
    EXPECT_EQ(Receives(), 0);
    peer.join();
    EXPECT_EQ(Payload(), "in small bites");
    ::sigaction(SIGUSR1, &former, nullptr);
}

TEST_F(APool, GivesZeroedAlignedMemoryOfEverySize) {
    std::vector<std::pair<unsigned char*, std::size_t>> given;
    for (std::size_t size = 0; size < 6000; size += size < 40 ? 1 : 97) {
        auto* memory = static_cast<unsigned char*>(pcalloc(m_msg->pool, size));
        ASSERT_NE(memory, nullptr);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignof(std::max_align_t), 0U);
        ASSERT_EQ(std::accumulate(memory, memory + size, 0), 0) << size;
        std::memset(memory, static_cast<int>(given.size() % 255 + 1), size);
        given.emplace_back(memory, size);
    }
    for (std::size_t i = 0; i < given.size(); ++i) { // nobody wrote into another's
        for (std::size_t k = 0; k < given[i].second; ++k) {
            ASSERT_EQ(given[i].first[k], i % 255 + 1);
        }
    }
}

TEST_F(APool, HasNoMemoryOfAbsurdSizes) {
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX / 2, std::size_t{65} << 20}) {
        EXPECT_EQ(pcalloc(m_msg->pool, size), nullptr) << size;
    }
    EXPECT_EQ(pcalloc(nullptr, 1), nullptr);
    EXPECT_NE(pcalloc(m_msg->pool, 17U << 20), nullptr);
}

TEST(ABoundedCopy, CopiesWithinItsBoundOrNothing) {
    char target[] = "target";
    EXPECT_EQ(memcpy_s(target, 6, "TARG", 4), 0);
    EXPECT_STREQ(target, "TARGet");
    EXPECT_EQ(memcpy_s(target, 6, "abcdef", 6), 0);
    EXPECT_NE(memcpy_s(target, 3, "1234", 4), 0);
    EXPECT_NE(memcpy_s(nullptr, 3, "1", 1), 0);
    EXPECT_NE(memcpy_s(target, 3, nullptr, 1), 0);
    EXPECT_EQ(memcpy_s(target, 0, "1", 0), 0);
    EXPECT_STREQ(target, "abcdef");
}

} // namespace PlatformTest
