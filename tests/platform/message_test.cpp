#include <array>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "support/test_client.h"

namespace PlatformTest {

using namespace Support;

class AMessage : public ::testing::Test {
protected:
    ~AMessage() override { tern_message_put(m_msg); }

    static std::array<int, 2> SocketPair() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        return ends;
    }

    bool Adds(const void* data, size_t length) {
        return tern_content_add(m_msg, data, static_cast<uint32_t>(length), 0) == 0;
    }
    int Receives() { return tern_message_recvfd(m_msg, m_end.Fd()); }
    std::string Payload() const {
        void* content = nullptr;
        uint32_t length = 0;
        return tern_content(m_msg, &content, &length) == 0 ? std::string(static_cast<char*>(content), length)
                                                           : "none";
    }
    // A range of the section, its record included.
    std::string Section(uint32_t offset, uint32_t length) const {
        const void* range = tern_content_struct(m_msg, offset, length);
        return range == nullptr ? "none" : std::string(static_cast<const char*>(range), length);
    }

    tern_message* m_msg = tern_message_new(0);
    const std::array<int, 2> m_ends = SocketPair();
    TestClient m_peer{m_ends[0]};
    TestClient m_end{m_ends[1]};
};

TEST_F(AMessage, ShowsRangesOfReceivedContentAndAddedPiecesAndNoOther) {
    m_peer.Sends(Frame(0x83, "came", 99));
    ASSERT_EQ(Receives(), 0);
    EXPECT_EQ(Section(0, 12), Bytes(1) + Bytes(4) + "came");
    EXPECT_TRUE(Adds("/a/path", 7));
    EXPECT_EQ(Section(0, 19), Bytes(2) + Bytes(4) + "came/a/path");
    EXPECT_EQ(Section(18, 1), "h");
    EXPECT_EQ(Section(19, 0), "");
    const std::pair<uint32_t, uint32_t> outside[] = {
        {19, 1}, {0, 20}, {20, 0}, {8, UINT32_MAX - 7}, {UINT32_MAX, 2}};
    for (const auto& [offset, length] : outside) {
        EXPECT_EQ(Section(offset, length), "none") << offset << " " << length;
    }
    EXPECT_TRUE(Adds("more", 4));
    EXPECT_EQ(Payload(), "came/a/pathmore");
    tern_content_clear(m_msg);
    EXPECT_EQ(Payload(), "none");
    EXPECT_EQ(Section(0, 8), Bytes(0) + Bytes(0));
    EXPECT_EQ(Section(8, 1), "none");
    m_msg->header->status = 404;
    tern_header_clear(m_msg);
    EXPECT_EQ(m_msg->header->method, 3);
    EXPECT_EQ(m_msg->header->status, 0);
    EXPECT_EQ(m_msg->header->sequence, 99U);
}

TEST_F(AMessage, RefusesAPayloadBeyondTheLargest) {
    const std::string half(8U << 20, 'h');
    EXPECT_TRUE(Adds(half.data(), half.size()));
    EXPECT_FALSE(Adds(half.data(), half.size() + 1));
    EXPECT_FALSE(Adds(half.data(), UINT32_MAX));
    EXPECT_TRUE(Adds(half.data(), half.size()));
    EXPECT_FALSE(Adds(half.data(), 1));
    EXPECT_FALSE(Adds(nullptr, 1));
    EXPECT_EQ(Payload().size(), 16U << 20);
}

TEST_F(AMessage, IsReplacedByWhatItReceives) {
    EXPECT_TRUE(Adds("what was here before", 20));
    void* memory = pcalloc(m_msg->pool, 100);
    tern_header* header = m_msg->header;
    const std::string large(400'000, 'x');
    std::thread peer([&] { m_peer.Sends(Frame(2, "short", 1) + Frame(3, "", 2) + Frame(4, large, 3)); });
    for (const std::string& payload : {std::string("short"), std::string("none"), large}) {
        EXPECT_EQ(Receives(), 0);
        EXPECT_EQ(Payload(), payload);
    }
    peer.join();
    EXPECT_EQ(header->sequence, 3U);
    std::memset(memory, 1, 100); // the pool lives as long as the message
}

TEST_F(AMessage, IsNotReceivedFromBadAndCutFrames) {
    const std::pair<uint16_t, uint32_t> magicsAndLengths[] = {
        {0x544E, 9}, {0x4E54, 7}, {0x4E54, (16U << 20) + 9}};
    for (const auto& [magic, length] : magicsAndLengths) {
        const tern_header header{magic, 0, 2, 0, 0, 0, length}; // answered although nothing follows it
        m_peer.Sends(std::string(reinterpret_cast<const char*>(&header), sizeof header));
        EXPECT_LT(Receives(), 0) << length;
    }
    m_peer.Sends(Frame(2, "cut off").substr(0, 30));
    m_peer.Close();
    EXPECT_LT(Receives(), 0);
    EXPECT_EQ(Payload(), "none");
    EXPECT_LT(tern_message_recvfd(m_msg, -1), 0);
    EXPECT_LT(tern_message_sendfd(m_msg, m_end.Fd()), 0);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(AMessage, CrossesASocketWholeWithMorePiecesThanOneCallTakes) {
    static const char DIGITS[] = "0123456789";
    std::string expected;
    for (int i = 0; i < 400'000; ++i) {
        expected += DIGITS[i % 10];
        ASSERT_TRUE(Adds(&DIGITS[i % 10], 1));
    }
    m_msg->header->sequence = 5;
    std::thread sender([this] { EXPECT_GE(tern_message_sendfd(m_msg, m_end.Fd()), 0); });
    const std::optional<Reply> received = m_peer.Receives();
    sender.join();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->header.sequence, 5U);
    EXPECT_EQ(received->pieces, 400'000U);
    EXPECT_TRUE(received->payload == expected);
}

TEST_F(AMessage, HasAPoolOfZeroedAlignedMemoryOfEverySize) {
    std::vector<std::string_view> given;
    for (size_t size = 0; size < 6000; size += size < 40 ? 1 : 97) {
        auto* memory = static_cast<char*>(pcalloc(m_msg->pool, size));
        ASSERT_NE(memory, nullptr);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t), 0U);
        ASSERT_EQ(std::string_view(memory, size), std::string(size, '\0'));
        std::memset(memory, static_cast<int>(given.size() % 100 + 1), size);
        given.emplace_back(memory, size);
    }
    for (size_t i = 0; i < given.size(); ++i) { // nobody wrote into another's
        ASSERT_EQ(given[i], std::string(given[i].size(), static_cast<char>(i % 100 + 1)));
    }
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX / 2, size_t{65} << 20}) {
        EXPECT_EQ(pcalloc(m_msg->pool, size), nullptr) << size;
    }
    EXPECT_EQ(pcalloc(nullptr, 1), nullptr);
    EXPECT_NE(pcalloc(m_msg->pool, 17U << 20), nullptr);
}

} // namespace PlatformTest
