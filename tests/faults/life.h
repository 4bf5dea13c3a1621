// The whole life of one item while a call fails, and what must hold after it.
#ifndef TESTS_FAULTS_LIFE_H
#define TESTS_FAULTS_LIFE_H

#include <memory>
#include <string>
#include <vector>

#include "support/injection.h"
#include "support/service_fixture.h"

namespace FaultTest {

using namespace SystemServer;

// A format: how a document with one value is written, and how that value is addressed.
struct Format {
    const char* name;
    ConfigStorageType type;
    const char* key; // of encryption; empty for plain files
    const char* newKey;
    const char* head; // value, tail: the document
    const char* tail;
    const char* query;
    const char* rawKey;
    const char* rawHead;
    const char* rawTail;
    const char* wholeHead; // what a raw set of the empty key takes
    const char* wholeTail;
    const char* fileHead; // before and after the value in a file that the service wrote
    const char* fileTail;
    const char* fileEnd; // what a file that is cut lacks
};

enum class Start { GOOD, MISSING, BROKEN, NEITHER };

struct Scenario {
    const char* name;
    Start start;
    ConfigSaveStrategy save;
    ConfigBackupStrategy backup;
};

inline std::ostream& operator<<(std::ostream& out, const Format& format) {
    return out << format.name;
}
inline std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

// Where the life takes place: the service that is listening, its directory, and its lines of level 3.
class Place {
public:
    virtual ~Place() = default;
    virtual std::string PathOf(const std::string& name) const = 0;
    virtual AppCfgCreateReq NewItem() const = 0;
    virtual bool WaitsForNoItem() const = 0;
    virtual size_t LogLines() const = 0;
};

// Lives once. The values that are set count up; what was answered as saved must outlive the fault.
class Life {
public:
    Life(const Place& place, const Format& format, const Scenario& scenario);

    // False when the life made no such call.
    bool LivesWith(const Fault& fault);

    // What did not hold, one sentence each.
    const std::vector<std::string>& Troubles() const { return m_troubles; }
    int Requests() const { return m_requests; }
    int LostConnections() const { return m_lostConnections; }
    int Losses() const { return m_losses; }

private:
    void WritesFiles();
    void WritesFile(const std::string& name, const std::string& value) const;
    void RunsUnderFault();
    void EndsOnAnotherConnection();
    void RunsAfterwards();
    void SavesWhole();
    void FindsItsValues(bool isExact);

    ServiceTest::Reply Asks(uint16_t uri, uint8_t method, const std::string& payload);
    uint16_t Creates();
    void ChoosesKey();
    uint16_t CreatesWith(const std::string& key);
    std::string Gets();
    void Sets();
    uint16_t SetsRaw(bool whole);
    void Restores();
    void Rekeys();
    uint16_t Deletes();

    std::string NextValue() { return "v" + std::to_string(m_history.size()); }
    // Takes the value for the newest one; when it was not acknowledged it may be in the document all the
    // same.
    void Note(const std::string& value, bool isAcknowledged);
    bool NothingFailedSince(int failures) const;
    bool IsKept(const std::string& value) const;
    std::string ValueIn(const std::string& name, const std::string& key) const;
    std::vector<std::string> Keys() const;
    void Loss(const std::string& text);
    void Trouble(const std::string& text) { m_troubles.push_back(text); }

    const Place& m_place;
    const Format& m_format;
    const Scenario& m_scenario;
    const bool m_isWritable;
    const bool m_isInstant;
    std::unique_ptr<ServiceTest::Client> m_client;
    std::vector<std::string> m_history; // the values, oldest first
    size_t m_acknowledged = 0;          // the newest one that was answered as set
    size_t m_saved = 0;                 // the newest one that was answered as saved
    std::string m_key;
    std::string m_otherKey; // which the files may be in too, after a key change that failed in part
    bool m_isKeyKnown = true;
    bool m_mayLoseConnection = false; // without memory there may be none for a frame or a connection
    bool m_isHarmless = false;        // the fault is one that the service may pass over
    bool m_isShortage = false;        // the fault is one of memory
    uint32_t m_sequence = 0;
    int m_failuresAtChange = 0; // how many calls had failed when the newest value was set
    int m_requests = 0;
    int m_refusals = 0;
    int m_lostConnections = 0;
    int m_losses = 0;
    std::vector<std::string> m_troubles;
};

} // namespace FaultTest

#endif
