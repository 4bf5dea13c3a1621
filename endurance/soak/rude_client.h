#ifndef RUDE_CLIENT_H
#define RUDE_CLIENT_H

#include <array>
#include <sys/socket.h>
#include <sys/time.h>

#include "app_cfg_wire.h"
#include "honest_client.h"
#include "support/records.h"
#include "support/test_client.h"

namespace Endurance {

using namespace SystemServer;
using Support::Frame;
using Support::TestClient;

// More than the sockets and the service hold for a client that does not read.
constexpr uint32_t STALLED_REQUESTS = 4000;

// A reply may have to wait for the last save of a timing strategy, which takes a minute at worst.
constexpr timeval PATIENCE{90, 0};

inline TestClient Connect() {
    TestClient client(APP_CFG_SERVICE_NAME);
    ::setsockopt(client.Fd(), SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
    return client;
}

// Uses the service as no client should: asks and does not read, sends garbage, leaves in the middle of a
// frame. Whatever it is still answered is checked. Owned by main; runs on a thread of its own.
class RudeClient {
public:
    RudeClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally) :
        m_number(number), m_tally(tally), m_dice(seed + number) {
        const std::string path = directory + "/rude" + std::to_string(number);
        m_item.hndl = Support::Handle("soak", "rude", number);
        m_item.storageType = ConfigStorageType::JSON;
        m_item.saveStrategy = ConfigStrategy::DELAY;
        m_item.backupStrategy = ConfigStrategy::INSTANT;
        Support::Put(m_item.cfgPath, path);
        Support::Put(m_item.backupPath, path + ".backup");
        Support::Put(m_item.defaultPath, path + ".default");
        std::ofstream(path + ".default") << R"({"note": ""})";
    }

    // One visit. Throws at the first wrong reply.
    void Live() {
        constexpr std::array<void (RudeClient::*)(), 4> MANNERS{
            &RudeClient::Stall, &RudeClient::SendGarbage, &RudeClient::LeaveInAFrame, &RudeClient::CrowdIn};
        (this->*MANNERS.at(m_number % MANNERS.size()))();
        Think(20 + m_dice.Pick(100));
    }

    std::string Describe() const { return "rude"; }

private:
    // Half of the time it reads in the end: each request was answered once, and in order.
    void Stall() {
        TestClient client = Connect();
        const std::string payload =
            Support::RawRecord(Support::Handle(SHARED_ITEM.Owner(), SHARED_ITEM.Name()), "");
        std::string frames;
        for (uint32_t sequence = 1; sequence <= STALLED_REQUESTS; ++sequence) {
            frames += Frame(APP_CFG_METHOD_GET, payload, sequence, APP_CFG_URI_RAW_DATA);
        }
        const size_t size = frames.size() / STALLED_REQUESTS;
        const size_t sent = SendUntilStalled(client, frames);
        const size_t asked = (sent + size - 1) / size;
        const std::string rest = frames.substr(sent, asked * size - sent);
        Think(1000 + m_dice.Pick(2000));
        if (m_dice.Pick(2) == 0) {
            return;
        }
        for (size_t sequence = 1; sequence <= asked; ++sequence) {
            Require(sequence < asked || client.Sends(rest), "a stalled connection took no more");
            const auto reply = client.Receives();
            Require(reply && reply->header.sequence == sequence && reply->header.status == 200,
                    "no reply or a wrong one after a stall");
            m_tally.CountReply();
        }
    }

    // Until nothing is taken for a while; returns how much was.
    size_t SendUntilStalled(TestClient& client, const std::string& bytes) const {
        size_t sent = 0;
        for (int idle = 0; idle < 20 && sent < bytes.size() && !m_tally.HasEnded(); ++idle) {
            const size_t taken = client.SendsWithoutWaiting(bytes.substr(sent, 64U << 10));
            sent += taken;
            idle = taken > 0 ? 0 : idle;
            Think(taken > 0 ? 0 : 10);
        }
        return sent;
    }

    void SendGarbage() {
        TestClient client = Connect();
        std::string bytes = "no frame begins so";
        for (unsigned length = m_dice.Pick(5000); length > 0; --length) {
            bytes += static_cast<char>(m_dice.Pick(256));
        }
        client.Sends(bytes);
        Require(client.MeetsEnd(), "garbage did not end the connection");
    }

    // Creates, sets and deletes in one go, and goes at any byte of that.
    void LeaveInAFrame() {
        const std::string data = '"' + std::string(m_dice.Pick(50000), 'x') + '"';
        const auto length = static_cast<uint32_t>(data.size() + 1);
        const std::string frames =
            Frame(APP_CFG_METHOD_CREATE, Support::BytesOf(m_item), 0, APP_CFG_URI_ITEM) +
            Frame(APP_CFG_METHOD_SET, Support::RawRecord(m_item.hndl, "note", length) + data + '\0', 0,
                  APP_CFG_URI_RAW_DATA) +
            Frame(APP_CFG_METHOD_DELETE, Support::BytesOf(m_item.hndl), 0, APP_CFG_URI_ITEM);
        TestClient client = Connect();
        client.Sends(frames.substr(0, m_dice.Pick(static_cast<unsigned>(frames.size()))));
    }

    // Many at once, each hanging in the middle of a frame.
    void CrowdIn() {
        const std::string frame = Frame(APP_CFG_METHOD_SET, std::string(40000, 'x'), 0, APP_CFG_URI_RAW_DATA);
        std::vector<TestClient> crowd;
        for (int i = 0; i < 50; ++i) {
            crowd.push_back(Connect());
            crowd.back().Sends(frame.substr(0, 1 + m_dice.Pick(40000)));
        }
        Think(1000);
    }

    void Think(unsigned milliseconds) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (!m_tally.HasEnded() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    const unsigned m_number;
    SystemServer::AppCfgCreateReq m_item{};
    Tally& m_tally;
    Dice m_dice;
};

} // namespace Endurance

#endif
