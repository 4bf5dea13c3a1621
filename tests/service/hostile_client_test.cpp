#include <random>

#include "service_fixture.h"

namespace ServiceTest {

constexpr size_t RECORD_SIZES[] = {72, 124, 204, 904, 12360};

// A service with two clients: one that attacks the items it knows of, and one that just works.
class AHostileClient : public AService {
protected:
    AHostileClient() {
        m_client.m_handle = Handle("good", "item");
        Writes("cfg", R"({"a":"1"})");
        Writes("victim", R"({"b":{"c":["x"]}})");
    }

    void MakesAVictim() {
        AppCfgCreateReq item = Item("victim", "", "");
        item.hndl = VICTIM;
        m_keeper.Creates(item);
    }

    void ExpectService() {
        EXPECT_EQ(m_client.Value("a"), "1");
        Client another;
        another.m_handle = m_client.m_handle;
        EXPECT_EQ(another.Value("a"), "1");
    }

    const AppCfgHndl VICTIM = Handle("victim", "item");
    Client m_keeper;
};

TEST_F(AHostileClient, WithRandomFramesHarmsNobody) {
    m_client.Creates(Item("cfg", "", ""));
    std::mt19937 random(20240229);
    const auto upTo = [&](size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random); };
    size_t answered = 0;
    for (int frames = 0; frames < 10000;) {
        if (frames % 500 == 0) {
            MakesAVictim();
        }
        m_log.Clear();
        Client attacker;
        std::string batch;
        for (int i = 0; i < 50; ++i, ++frames) {
            const size_t length = upTo(9) == 0 ? RECORD_SIZES[upTo(4)] + upTo(20) : upTo(300);
            std::string payload(length, '\0');
            std::generate(payload.begin(), payload.end(), [&] { return static_cast<char>(upTo(255)); });
            if (upTo(1) == 0) {
                payload.replace(0, std::min(payload.size(), sizeof VICTIM), BytesOf(VICTIM));
            }
            std::string frame =
                Frame(static_cast<uint16_t>(upTo(5)), static_cast<uint8_t>(upTo(255)), payload);
            if (upTo(99) == 0) {
                frame[upTo(23)] ^= static_cast<char>(1 + upTo(254)); // may end the connection
            }
            batch += frame;
        }
        attacker.Sends(batch);
        attacker.ShutDownWriting();
        while (attacker.Receives()) {
            ++answered;
        }
    }
    EXPECT_GT(answered, 5000U);
    ExpectService();
}

// Content without a NUL anywhere behind the handle.
TEST_F(AHostileClient, WithContentOfEveryLengthHarmsNobody) {
    m_client.Creates(Item("cfg", "", ""));
    std::vector<size_t> lengths;
    for (size_t length = 0; length <= 1000; ++length) {
        lengths.push_back(length);
    }
    for (const size_t size : RECORD_SIZES) {
        for (size_t length = size - 3; length <= size + 3; ++length) {
            lengths.push_back(length);
        }
    }
    Client attacker;
    for (uint16_t uri = 0; uri <= 5; ++uri) {
        for (uint8_t method = 0; method <= 6; ++method) {
            MakesAVictim();
            m_log.Clear();
            std::string batch;
            for (const size_t length : lengths) {
                const std::string content = (BytesOf(VICTIM) + std::string(13000, 'x')).substr(0, length);
                batch += Frame(uri, method, content, static_cast<uint32_t>(length));
            }
            ASSERT_TRUE(attacker.Sends(batch));
            for (const size_t length : lengths) {
                const Reply reply = attacker.Receives().value_or(Reply{});
                ASSERT_EQ(reply.header.sequence, length);
                ASSERT_GE(reply.header.status, 200);
            }
        }
    }
    ExpectService();
}

} // namespace ServiceTest
