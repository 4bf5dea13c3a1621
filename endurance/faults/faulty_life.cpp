// An item lives its life by requests, any of which may be refused while the fault is in force: a refusal is
// an answer as good as any, as long as the log tells of it. What a later request finds is judged by the
// ledger.
#include "faulty_life.h"

#include <cerrno>
#include <utility>

#include "appcfg/error.h"

namespace Endurance {

namespace {

using FaultTest::Call;
using FaultTest::Fault;

constexpr uint16_t OK = 200;
constexpr uint16_t REFUSED = 400;

// The other faults may be passed over: by another try, or by going on with a short write.
bool IsAlwaysTold(const Fault& fault) {
    return (fault.call == Call::OPEN || fault.call == Call::WRITE || fault.call == Call::FSYNC) &&
           fault.error != EINTR && fault.error != FaultTest::SHORT_WRITE;
}

// What makes a file count as one that cannot be loaded, so that a copy takes its place; a shortage does not.
// A write that fails cuts the file, and leaves the values of the last backup.
bool MayLoseCopy(const Fault& fault, Start start) {
    const bool isOfReading = fault.call == Call::OPEN || fault.call == Call::READ ||
                             fault.call == Call::FSTAT || fault.call == Call::STAT;
    const bool isOfWriting = fault.call == Call::WRITE || fault.call == Call::FSYNC;
    return (isOfWriting && start == Start::GOOD) ||
           (isOfReading && (fault.error == EIO || fault.error == EACCES || fault.error == ENOSPC));
}

} // namespace

FaultyLife::FaultyLife(const Service& service, const Format& format, const Scenario& scenario,
                       const Fault& fault) :
    m_fault(fault),
    m_isGood(scenario.start == Start::GOOD), m_mayLoseConnection(fault.call == Call::ALLOCATION),
    m_item(appcfg::Handle("life", "net"), format, scenario.strategies, Document(format.storage, 1, 0)) {
    m_item.StandIn(service.Root());
    m_item.WriteFiles(scenario.start, MayLoseCopy(fault, scenario.start));
    // A close that fails has closed, and what is written is written.
    m_item.m_failures = fault.call == Call::CLOSE ? [] { return 0; } : FaultTest::Failures;
    // What a shortage kept from being saved is saved by the end, or the end is refused.
    m_item.m_endSavesAlways = fault.call == Call::ALLOCATION || fault.call == Call::CIPHER_ALLOCATION;
}

bool FaultyLife::Run() {
    const size_t lines = Service::ErrorLines();
    {
        const FaultTest::Injection injection(m_fault);
        LiveUnderFault();
    }
    const bool failed = FaultTest::Failures() > 0;
    if (failed && (m_refusals > 0 || IsAlwaysTold(m_fault)) && Service::ErrorLines() == lines) {
        Trouble("no log line tells of it");
    }
    LiveAfterwards();
    return failed;
}

void FaultyLife::LiveUnderFault() {
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
void FaultyLife::EndOnAnotherConnection() {
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

// The item that has lived through the fault saves its next value in both files, and the files alone bring it
// back; one that has not comes back with what was answered as saved.
void FaultyLife::LiveAfterwards() {
    if (IsThere("after the fault")) {
        const uint16_t status = Ask([this](appcfg::Connection& connection) {
            const std::string trouble = m_item.SaveWhole(connection);
            if (!trouble.empty()) {
                Trouble(trouble);
            }
        });
        if (status != OK) {
            Trouble("the fault is gone and a value cannot be saved: " + std::to_string(status));
        }
    }
    if (Create() != OK || !IsThere("created again")) {
        Trouble("the fault is gone and the item cannot be created: " + m_item.Describe());
    }
    Ask(&TrackedItem::Delete);
    m_connection.reset();
    ExpectGone();
}

uint16_t FaultyLife::Ask(const std::function<void(appcfg::Connection&)>& request) {
    ++m_requests;
    try {
        if (!m_connection) {
            m_connection = std::make_unique<appcfg::Connection>();
        }
        request(*m_connection);
        return OK;
    } catch (const appcfg::RequestRefused& refused) {
        ++m_refusals;
        return refused.Status();
    } catch (const appcfg::ConnectionError& lost) {
        const std::string why = lost.what();
        const bool isClosed = dynamic_cast<const appcfg::TimeoutError*>(&lost) == nullptr &&
                              why.find("another request") == std::string::npos;
        if (!m_mayLoseConnection || !isClosed) {
            Trouble("a request is not answered: " + why);
        }
    }
    ++m_lostConnections;
    m_connection.reset();
    m_item.NoteCrash();
    return 0;
}

// After a key change that failed in part the files say which key it is.
uint16_t FaultyLife::Create() {
    m_item.ChooseKey();
    const uint16_t status = Ask(&TrackedItem::Create);
    if (status == OK) {
        IsThere("created");
    }
    return status;
}

bool FaultyLife::IsThere(const std::string& when) {
    bool isAllowed = true;
    const uint16_t status =
        Ask([&](appcfg::Connection& connection) { isAllowed = m_item.HoldsSaved(connection); });
    if (!isAllowed) {
        Trouble("lost, " + when + ": " + m_item.Describe());
    }
    return status == OK;
}

// The ledger knows of no other number than the default's then.
void FaultyLife::Restore() {
    const int failures = m_item.m_failures();
    if (Ask(&TrackedItem::Restore) == OK && m_item.m_failures() == failures) {
        IsThere("restored");
    }
}

// A 200 says that both files were rewritten in the new key. A strategy may still be writing what was set
// before: a file that is cut is looked at again, until it is whole or a later call has failed. One that can
// be read with the old key was not rewritten.
void FaultyLife::ChangeKey() {
    const Key old = m_item.Description().encryption;
    const Key key = m_item.NextKey();
    const auto change = [&](appcfg::Connection& connection) { m_item.ChangeKey(connection, key); };
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
    if (!isNew && FaultTest::Failures() == failures) {
        Trouble("the files are not in the new key: " + m_item.Describe());
    }
}

void FaultyLife::ExpectGone() {
    if (!Service::ComesToHold({OTHER_ITEM})) {
        Trouble("an item outlives its connection");
    }
}

} // namespace Endurance
