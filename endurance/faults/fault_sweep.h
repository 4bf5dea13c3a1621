// Fails the calls of items' lives, one after the other.
#ifndef FAULT_SWEEP_H
#define FAULT_SWEEP_H

#include <string>
#include <vector>

#include "faulty_life.h"

namespace Endurance {

// A file call, and how it can fail.
struct CallErrors {
    FaultTest::Call call;
    std::vector<int> errors;
};

// Owns the service and another client's item in it, which no fault may touch. Used by main's thread.
class FaultSweep {
public:
    // Briefly, the errors of a call take turns and most allocations are passed over.
    explicit FaultSweep(bool isBrief);

    void Run(const Format& format);
    // What was seen, as one line.
    std::string Text() const;
    bool HasPassed() const { return m_troubles == 0 && m_points > 0; }

private:
    void SweepCall(const Format& format, const Scenario& scenario, const CallErrors& entry, bool forEver);
    void SweepAllocations(const Format& format, const Scenario& scenario, FaultTest::Call call, int step);
    // False when the life made no such call.
    bool Live(const Format& format, const Scenario& scenario, const FaultTest::Fault& fault);
    void Trouble(const std::string& text);

    const FaultTest::Exempt m_exempt{};
    const bool m_isBrief;
    const Service m_service{};
    appcfg::Connection m_connection{};
    TrackedItem m_other;
    int m_points = 0;
    int m_requests = 0;
    int m_lostConnections = 0;
    int m_troubles = 0;
};

} // namespace Endurance

#endif
