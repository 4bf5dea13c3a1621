#include "rude_client.h"

#include <array>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>

#include "honest_client.h"
#include "support/records.h"

namespace Endurance {

namespace {

using namespace SystemServer;
using Support::Frame;
using Support::TestClient;

// More than the sockets and the service hold for a client that does not read.
constexpr uint32_t STALLED_REQUESTS = 4000;

// A reply may have to wait for the last save of a timing strategy, which takes a minute at worst.
constexpr timeval PATIENCE{90, 0};

TestClient Connect() {
    TestClient client(APP_CFG_SERVICE_NAME);
    ::setsockopt(client.Fd(), SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
    return client;
}

void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

} // namespace

RudeClient::RudeClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally) :
    m_number(number), m_tally(tally), m_random(seed + number) {
    const std::string path = directory + "/rude" + std::to_string(number);
    m_item.hndl = Support::Handle("soak", "rude", number);
    m_item.storageType = ConfigStorageType::JSON;
    m_item.saveStrategy = ConfigSaveStrategy::DELAY;
    m_item.backupStrategy = ConfigBackupStrategy::INSTANT;
    Support::Put(m_item.cfgPath, path);
    Support::Put(m_item.backupPath, path + ".backup");
    Support::Put(m_item.defaultPath, path + ".default");
    std::ofstream(path + ".default") << R"({"note": ""})";
}

void RudeClient::Run() {
    constexpr std::array<void (RudeClient::*)(), 5> MANNERS{&RudeClient::Stall, &RudeClient::SendGarbage,
                                                            &RudeClient::SendOddRequests,
                                                            &RudeClient::LeaveInAFrame, &RudeClient::CrowdIn};
    try {
        while (!m_tally.HasEnded()) {
            (this->*MANNERS.at(m_number % MANNERS.size()))();
            Think(20 + Pick(100));
        }
    } catch (const std::exception& fault) {
        m_tally.Fail("rude client " + std::to_string(m_number) + ": " + fault.what());
    }
}

// Half of the time it reads in the end: each request was answered once, and in order.
void RudeClient::Stall() {
    TestClient client = Connect();
    const appcfg::Handle& shared = SHARED_ITEMS.front();
    const std::string payload = Support::RawRecord(Support::Handle(shared.Owner(), shared.Name()), "");
    std::string frames;
    for (uint32_t sequence = 1; sequence <= STALLED_REQUESTS; ++sequence) {
        frames += Frame(APP_CFG_METHOD_GET, payload, sequence, APP_CFG_URI_RAW_DATA);
    }
    const size_t size = frames.size() / STALLED_REQUESTS;
    const size_t sent = SendUntilStalled(client, frames);
    const size_t asked = (sent + size - 1) / size;
    const std::string rest = frames.substr(sent, asked * size - sent);
    Think(1000 + Pick(2000));
    if (Pick(2) == 0) {
        m_tally.Count("stalled, then gone");
        return;
    }
    for (size_t sequence = 1; sequence <= asked; ++sequence) {
        Require(sequence < asked || client.Sends(rest), "a stalled connection took no more");
        const auto reply = client.Receives();
        Require(reply.has_value(), "no reply after a stall");
        Require(reply->header.sequence == sequence && reply->header.status == 200,
                "a wrong reply after a stall");
        m_tally.Count(appcfg::Request::RAW_GET, reply->header.status);
    }
    m_tally.Count("stalled, then read all");
}

// Until nothing is taken for a while; returns how much was.
size_t RudeClient::SendUntilStalled(TestClient& client, const std::string& bytes) const {
    size_t sent = 0;
    for (int idle = 0; idle < 20 && sent < bytes.size() && !m_tally.HasEnded(); ++idle) {
        const size_t taken = client.SendsWithoutWaiting(bytes.substr(sent, 64U << 10));
        sent += taken;
        if (taken > 0) {
            idle = 0;
        } else {
            Think(10);
        }
    }
    return sent;
}

void RudeClient::SendGarbage() {
    TestClient client = Connect();
    client.Sends("no frame begins so" + Garbage(100 + Pick(5000)));
    Require(client.MeetsEnd(), "garbage did not end the connection");
    m_tally.Count("garbage");
}

// Whole frames, whatever is in them, are answered.
void RudeClient::SendOddRequests() {
    constexpr std::array<size_t, 6> LENGTHS{0, 72, 124, 300, 904, 12360};
    TestClient client = Connect();
    for (uint32_t sequence = 1; sequence < 20; ++sequence) {
        const std::string payload = Garbage(LENGTHS.at(Pick(LENGTHS.size())));
        Require(client.Sends(
                    Frame(static_cast<uint8_t>(Pick(6)), payload, sequence, static_cast<uint16_t>(Pick(6)))),
                "an odd request was not taken");
        const auto reply = client.Receives();
        Require(reply && reply->header.sequence == sequence, "no reply to an odd request");
        Require(reply->header.status >= 400 && reply->header.status < 500,
                "an odd request was answered " + std::to_string(reply->header.status));
        m_tally.Count("odd request, refused " + std::to_string(reply->header.status));
    }
}

// Creates, sets and deletes in one go, and goes at any byte of that.
void RudeClient::LeaveInAFrame() {
    const std::string data = '"' + std::string(Pick(50000), 'x') + '"';
    const auto length = static_cast<uint32_t>(data.size() + 1);
    const std::string frames =
        Frame(APP_CFG_METHOD_CREATE, Support::BytesOf(m_item), 0, APP_CFG_URI_ITEM) +
        Frame(APP_CFG_METHOD_SET, Support::RawRecord(m_item.hndl, "note", length) + data + '\0', 0,
              APP_CFG_URI_RAW_DATA) +
        Frame(APP_CFG_METHOD_DELETE, Support::BytesOf(m_item.hndl), 0, APP_CFG_URI_ITEM);
    TestClient client = Connect();
    client.Sends(frames.substr(0, Pick(static_cast<unsigned>(frames.size()))));
    m_tally.Count("left in a frame");
}

// Many at once, each hanging in the middle of a frame.
void RudeClient::CrowdIn() {
    const std::string frame = Frame(APP_CFG_METHOD_SET, std::string(40000, 'x'), 0, APP_CFG_URI_RAW_DATA);
    std::vector<TestClient> crowd;
    for (int i = 0; i < 50; ++i) {
        crowd.push_back(Connect());
        crowd.back().Sends(frame.substr(0, 1 + Pick(40000)));
    }
    Think(1000);
    m_tally.Count("crowds that hung in frames");
}

std::string RudeClient::Garbage(size_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(Pick(256));
    }
    return bytes;
}

void RudeClient::Think(unsigned milliseconds) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!m_tally.HasEnded() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace Endurance
