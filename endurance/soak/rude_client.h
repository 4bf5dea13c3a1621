#ifndef RUDE_CLIENT_H
#define RUDE_CLIENT_H

#include <random>
#include <string>

#include "app_cfg_wire.h"
#include "support/test_client.h"
#include "tally.h"

namespace Endurance {

// Uses the service as no client should: asks and does not read, sends garbage, leaves in the middle of a
// frame. Whatever it is still answered is checked. Owned by main; runs on a thread of its own.
class RudeClient {
public:
    RudeClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally);

    // Returns when the run has ended, or at the first wrong reply, which ends it.
    void Run();

private:
    void Stall();
    size_t SendUntilStalled(Support::TestClient& client, const std::string& bytes) const;
    void SendGarbage();
    void SendOddRequests();
    void LeaveInAFrame();
    void CrowdIn();

    unsigned Pick(unsigned below) { return static_cast<unsigned>(m_random() % below); }
    std::string Garbage(size_t length);
    void Think(unsigned milliseconds) const;

    const unsigned m_number;
    SystemServer::AppCfgCreateReq m_item{};
    Tally& m_tally;
    std::mt19937 m_random;
};

} // namespace Endurance

#endif
