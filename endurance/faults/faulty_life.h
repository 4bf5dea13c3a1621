// The whole life of one item while a call fails, and what must hold after it.
#ifndef FAULTY_LIFE_H
#define FAULTY_LIFE_H

#include <cerrno>

#include "service.h"
#include "support/injection.h"
#include "tracked_item.h"

namespace Endurance {

using FaultTest::Call;
using FaultTest::Fault;

constexpr uint16_t OK = 200;
constexpr uint16_t REFUSED = 400;

// The other faults may be passed over: by another try, or by going on with a short write.
inline bool IsAlwaysTold(const Fault& fault) {
    return (fault.call == Call::OPEN || fault.call == Call::WRITE || fault.call == Call::FSYNC) &&
           fault.error != EINTR && fault.error != FaultTest::SHORT_WRITE;
}

// What makes a file count as one that cannot be loaded, so that a copy takes its place; a shortage does not.
// A write that fails cuts the file, and leaves the values of the last backup.
inline bool MayLoseCopy(const Fault& fault, Start start) {
    const bool isOfReading = fault.call == Call::OPEN || fault.call == Call::READ ||
                             fault.call == Call::FSTAT || fault.call == Call::STAT;
    const bool isOfWriting = fault.call == Call::WRITE || fault.call == Call::FSYNC;
    return (isOfWriting && start == Start::GOOD) ||
           (isOfReading && (fault.error == EIO || fault.error == EACCES || fault.error == ENOSPC));
}

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

    FaultyLife(const Service& service, const Format& format, const Scenario& scenario, const Fault& fault) :
        m_fault(fault), m_isGood(scenario.start == Start::GOOD),
        m_mayLoseConnection(fault.call == Call::ALLOCATION),
        m_item(appcfg::Handle("life", "net"), format, scenario.strategies, Document(format.storage, 1, 0)) {
        m_item.StandIn(service.Root());
        m_item.WriteFiles(scenario.start, MayLoseCopy(fault, scenario.start));
        // A close that fails has closed, and what is written is written.
        m_item.m_failures = fault.call == Call::CLOSE ? [] { return 0; } : FaultTest::Failures;
        // What a shortage kept from being saved is saved by the end, or the end is refused.
        m_item.m_endSavesAlways = fault.call == Call::ALLOCATION || fault.call == Call::CIPHER_ALLOCATION;
    }

    // False when the life made no such call.
    bool Run() {
        const size_t lines = Service::ErrorLines();
        {
            const FaultTest::Injection injection(m_fault);
            LiveUnderFault();
        }
        const bool failed = FaultTest::Failures() > 0;
        const bool isTold = Service::ErrorLines() > lines;
        Expect(!failed || isTold || (m_refusals == 0 && !IsAlwaysTold(m_fault)), "no log line tells of it");
        LiveAfterwards();
        return failed;
    }

    // What did not hold, one sentence each.
    const std::vector<std::string>& Troubles() const { return m_troubles; }

private:
    void LiveUnderFault() {
        Create();
        Ask(&TrackedItem::SendSet);
        Ask(&TrackedItem::SendFragment);
        if (m_isGood) {
            Ask(&TrackedItem::SendRaw);
            Restore();
            Ask(&TrackedItem::SendFragment);
            ChangeKey();
            Ask(&TrackedItem::SendSet);
            if (Ask(&TrackedItem::Delete) != REFUSED) { // or the item is still this connection's
                EndOnAnotherConnection();
            }
        } else {
            Ask(&TrackedItem::Delete);
        }
        Create();
        Ask(&TrackedItem::SendFragment);
    }

    // The end of the connection is the end of the item.
    void EndOnAnotherConnection() {
        std::unique_ptr<appcfg::Connection> first = std::exchange(m_connection, nullptr);
        const int failures = m_item.m_failures();
        const bool isCreated = Create() == OK;
        Ask(&TrackedItem::SendSet);
        m_connection = std::move(first);
        ExpectGone();
        if (isCreated) {
            m_item.NoteEnd(failures);
        }
    }

    // The item that has lived through the fault saves its next value in both files, and the files alone
    // bring it back; one that has not comes back with what was answered as saved.
    void LiveAfterwards() {
        if (IsThere("after the fault")) {
            const uint16_t status = Ask([this](TrackedItem& item, appcfg::Connection& connection) {
                const std::string trouble = item.SaveWhole(connection);
                Expect(trouble.empty(), trouble);
            });
            Expect(status == OK, "the fault is gone and a value cannot be saved: " + std::to_string(status));
        }
        const bool isCreated = Create() == OK && IsThere("created again");
        Expect(isCreated, "the fault is gone and the item cannot be created: " + m_item.Describe());
        Ask(&TrackedItem::Delete);
        m_connection.reset();
        ExpectGone();
    }

    // Makes a request over the connection, or a new one if it is lost: the status, 0 for no reply.
    uint16_t Ask(const std::function<void(TrackedItem&, appcfg::Connection&)>& request) {
        try {
            if (!m_connection) {
                m_connection = std::make_unique<appcfg::Connection>();
            }
            request(m_item, *m_connection);
            return OK;
        } catch (const appcfg::RequestRefused& refused) {
            ++m_refusals;
            return refused.Status();
        } catch (const appcfg::ConnectionError& lost) {
            const std::string why = lost.what();
            const bool isClosed = dynamic_cast<const appcfg::TimeoutError*>(&lost) == nullptr &&
                                  why.find("another request") == std::string::npos;
            Expect(m_mayLoseConnection && isClosed, "a request is not answered: " + why);
        }
        m_connection.reset();
        m_item.NoteCrash();
        return 0;
    }

    // After a key change that failed in part the files say which key it is.
    uint16_t Create() {
        m_item.ChooseKey();
        const uint16_t status = Ask(&TrackedItem::Create);
        if (status == OK) {
            IsThere("created");
        }
        return status;
    }

    // The ledger knows of no other number than the default's then.
    void Restore() {
        const int failures = m_item.m_failures();
        if (Ask(&TrackedItem::Restore) == OK && m_item.m_failures() == failures) {
            IsThere("restored");
        }
    }

    // A 200 says that both files were rewritten in the new key. A strategy may still be writing what was set
    // before: a file that is cut is looked at again, until it is whole or a later call has failed. One that
    // can be read with the old key was not rewritten.
    void ChangeKey() {
        const Key old = m_item.Description().encryption;
        const Key key = m_item.NextKey();
        const auto change = [&](TrackedItem& item, appcfg::Connection& connection) {
            item.ChangeKey(connection, key);
        };
        if (Ask(change) != OK || !m_item.IsWritten()) {
            return;
        }
        const int failures = FaultTest::Failures();
        const auto isOld = [&](const std::string& path) {
            return key && m_item.GetDocument().NumberIn(path, old).has_value();
        };
        bool isNew = false;
        Support::Eventually([&] {
            const Files files = m_item.Look();
            isNew = files.file && files.backup && m_item.GetLedger().Allows(*files.file) &&
                    m_item.GetLedger().Allows(*files.backup);
            return isNew || isOld(m_item.Description().path) || isOld(m_item.Description().backupPath) ||
                   FaultTest::Failures() != failures;
        });
        Expect(isNew || FaultTest::Failures() != failures,
               "the files are not in the new key: " + m_item.Describe());
    }

    // Whether the service has the item; what it holds must be allowed.
    bool IsThere(const std::string& when) {
        bool isAllowed = true;
        const uint16_t status = Ask([&](TrackedItem& item, appcfg::Connection& connection) {
            isAllowed = item.HoldsSaved(connection);
        });
        Expect(isAllowed, "lost, " + when + ": " + m_item.Describe());
        return status == OK;
    }

    void ExpectGone() {
        Expect(Support::RunningService::Knows({OTHER_ITEM}), "an item outlives its connection");
    }

    void Expect(bool holds, const std::string& trouble) {
        if (!holds) {
            m_troubles.push_back(trouble);
        }
    }

    const FaultTest::Fault m_fault;
    const bool m_isGood;
    const bool m_mayLoseConnection; // without memory there may be none for a frame or a connection
    TrackedItem m_item;
    std::unique_ptr<appcfg::Connection> m_connection{};
    int m_refusals = 0;
    std::vector<std::string> m_troubles{};
};

} // namespace Endurance

#endif
