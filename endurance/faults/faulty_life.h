// The whole life of one item while a call fails, and what must hold after it.
#ifndef FAULTY_LIFE_H
#define FAULTY_LIFE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "service.h"
#include "support/injection.h"
#include "tracked_item.h"

namespace Endurance {

// How a life begins and is saved.
struct Scenario {
    const char* name;
    Start start;
    Strategies strategies;
};

// Lives once, in a service that holds one item of another client besides. What was answered as saved must
// outlive the fault.
class FaultyLife {
public:
    // As the service's registry names the other client's item.
    static constexpr const char* OTHER_ITEM = "other.net.0";

    FaultyLife(const Service& service, const Format& format, const Scenario& scenario,
               const FaultTest::Fault& fault);

    // False when the life made no such call.
    bool Run();

    // What did not hold, one sentence each.
    const std::vector<std::string>& Troubles() const { return m_troubles; }
    int Requests() const { return m_requests; }
    int LostConnections() const { return m_lostConnections; }

private:
    using Verb = void (TrackedItem::*)(appcfg::Connection&);

    void LiveUnderFault();
    void EndOnAnotherConnection();
    void LiveAfterwards();

    // Makes a request over the connection, or a new one if it is lost: the status, 0 for no reply.
    uint16_t Ask(const std::function<void(appcfg::Connection&)>& request);
    uint16_t Ask(Verb verb) {
        return Ask([this, verb](appcfg::Connection& connection) { (m_item.*verb)(connection); });
    }
    uint16_t Create();
    void Restore();
    void ChangeKey();
    // Whether the service has the item; what it holds must be allowed.
    bool IsThere(const std::string& when);
    void ExpectGone();
    void Trouble(const std::string& text) { m_troubles.push_back(text); }

    const FaultTest::Fault m_fault;
    const bool m_isGood;
    const bool m_mayLoseConnection; // without memory there may be none for a frame or a connection
    TrackedItem m_item;
    std::unique_ptr<appcfg::Connection> m_connection{};
    int m_requests = 0;
    int m_refusals = 0;
    int m_lostConnections = 0;
    std::vector<std::string> m_troubles{};
};

} // namespace Endurance

#endif
