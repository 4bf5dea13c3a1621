#include "life.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "support/item_encryption.h"

namespace FaultTest {

using ServiceTest::BytesOf;
using ServiceTest::Client;
using ServiceTest::Reply;

namespace {

// The other faults may be passed over: by another try, or by going on with a short write.
bool IsAlwaysTold(const Fault& fault) {
    return (fault.call == Call::OPEN || fault.call == Call::WRITE || fault.call == Call::FSYNC) &&
           fault.error != EINTR && fault.error != SHORT_WRITE;
}

// What makes a file count as one that cannot be loaded, so that a copy takes its place; a shortage does not.
bool IsUnreadable(const Fault& fault) {
    const bool isOfReading = fault.call == Call::OPEN || fault.call == Call::READ ||
                             fault.call == Call::FSTAT || fault.call == Call::STAT;
    return isOfReading && (fault.error == EIO || fault.error == EACCES || fault.error == ENOSPC);
}

// A write that fails cuts the file, and leaves the values of the last backup.
bool IsOfWriting(const Fault& fault) {
    return fault.call == Call::WRITE || fault.call == Call::FSYNC;
}

constexpr char DEFAULT_VALUE[] = "factory";

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// What takes the place of a value that could not be had.
bool IsStatus(const std::string& value) {
    return value.rfind("status ", 0) == 0;
}

} // namespace

Life::Life(const Place& place, const Format& format, const Scenario& scenario) :
    m_place(place), m_format(format), m_scenario(scenario),
    m_isWritable(format.type != ConfigStorageType::INI),
    m_isInstant(scenario.save == ConfigSaveStrategy::INSTANT), m_client(std::make_unique<Client>()),
    m_key(format.key) {}

bool Life::LivesWith(const Fault& fault) {
    m_isHarmless = fault.call == Call::CLOSE;
    m_isShortage = fault.call == Call::ALLOCATION || fault.call == Call::CIPHER_ALLOCATION;
    m_mayLoseConnection = fault.call == Call::ALLOCATION;
    WritesFiles();
    if (m_saved > 0 && (IsUnreadable(fault) || (IsOfWriting(fault) && m_scenario.start == Start::GOOD))) {
        m_acknowledged = --m_saved; // one copy less
    }
    const size_t lines = m_place.LogLines();
    {
        const Injection injection(fault);
        RunsUnderFault();
    }
    const bool failed = Failures() > 0;
    if (failed && (m_refusals > 0 || IsAlwaysTold(fault)) && m_place.LogLines() == lines) {
        Trouble("no log line tells of it");
    }
    RunsAfterwards();
    return failed;
}

void Life::WritesFiles() {
    for (const char* name : {"cfg", "bak"}) {
        std::remove(m_place.PathOf(name).c_str());
    }
    WritesFile("def", DEFAULT_VALUE);
    m_history = {DEFAULT_VALUE};
    if (m_scenario.start != Start::NEITHER) {
        WritesFile("bak", m_history.emplace_back("older"));
    }
    if (m_scenario.start == Start::GOOD) {
        WritesFile("cfg", m_history.emplace_back(NextValue()));
    } else if (m_scenario.start == Start::BROKEN) {
        std::ofstream(m_place.PathOf("cfg")) << m_format.head;
    }
    m_saved = m_acknowledged = m_history.size() - 1;
}

void Life::WritesFile(const std::string& name, const std::string& value) const {
    const std::string text = m_format.head + value + m_format.tail;
    if (*m_format.key != '\0') {
        ServiceTest::WritesEncrypted(m_place.PathOf(name), text, m_format.key);
    } else {
        std::ofstream(m_place.PathOf(name), std::ios::binary) << text;
    }
}

void Life::RunsUnderFault() {
    Creates();
    Sets();
    SetsRaw(false);
    if (m_scenario.start == Start::GOOD) {
        SetsRaw(true);
        Restores();
        SetsRaw(false);
        Rekeys();
        Sets();
        if (Deletes() != APP_CFG_STATUS_BAD_REQUEST) { // or the item is still this connection's
            EndsOnAnotherConnection();
        }
    } else {
        Deletes();
    }
    Creates();
    SetsRaw(false);
}

void Life::EndsOnAnotherConnection() {
    auto first = std::exchange(m_client, std::make_unique<Client>());
    const int failures = Failures();
    const bool isCreated = Creates() == APP_CFG_STATUS_OK;
    Sets();
    m_client = std::move(first);
    if (!m_place.WaitsForNoItem()) {
        Trouble("an item outlives its connection");
    }
    if (isCreated && NothingFailedSince(failures)) {
        m_saved = m_acknowledged;
    }
}

void Life::RunsAfterwards() {
    const bool isAlive = !IsStatus(Gets());
    if (isAlive) {
        SavesWhole();
    }
    FindsItsValues(isAlive && m_isWritable);
    Deletes();
    m_client.reset();
    if (!m_place.WaitsForNoItem()) {
        Trouble("an item outlives its connection");
    }
}

// The item that has lived through the fault saves its next value in both files.
void Life::SavesWhole() {
    if (SetsRaw(false) != APP_CFG_STATUS_OK) {
        Trouble("the fault is gone and a value cannot be set");
    }
    Deletes();
    if (!m_isWritable) {
        return;
    }
    for (const std::string& key : Keys()) {
        const bool isBackedUp = !m_isInstant || ValueIn("bak", key) == m_history.back();
        if (ValueIn("cfg", key) == m_history.back() && isBackedUp) {
            m_key = key;
            m_isKeyKnown = true;
            return;
        }
    }
    Trouble("the next good save is not whole: cfg " + ValueIn("cfg", m_key) + ", bak " +
            ValueIn("bak", m_key) + ", not " + m_history.back());
}

// The files alone bring back what was answered as saved.
void Life::FindsItsValues(bool isExact) {
    std::string files = ", files";
    for (const std::string& key : Keys()) {
        files += " " + ValueIn("cfg", key) + "/" + ValueIn("bak", key) + "/" + ValueIn("def", key);
    }
    ChoosesKey();
    const uint16_t status = CreatesWith(m_key);
    const std::string value = status == APP_CFG_STATUS_OK ? Gets() : "status " + std::to_string(status);
    if (!(isExact ? value == m_history.back() : IsKept(value))) {
        Loss("created again: " + value + files);
    }
}

void Life::Loss(const std::string& text) {
    ++m_losses;
    Trouble(text + ", not " + m_history[m_saved] + " or a later one of " + std::to_string(m_history.size()));
}

Reply Life::Asks(uint16_t uri, uint8_t method, const std::string& payload) {
    ++m_requests;
    const Reply reply = m_client->Asks(uri, method, payload, ++m_sequence);
    if (reply.header.status == 0) {
        if (!m_mayLoseConnection) {
            Trouble("a request is not answered");
        }
        ++m_lostConnections;
        m_client = std::make_unique<Client>();
    } else if (reply.header.sequence != m_sequence) {
        Trouble("a reply too many");
    }
    m_refusals += reply.header.status == APP_CFG_STATUS_OK ? 0 : 1;
    return reply;
}

uint16_t Life::CreatesWith(const std::string& key) {
    AppCfgCreateReq item = m_place.NewItem();
    item.storageType = m_format.type;
    item.saveStrategy = m_scenario.save;
    item.backupStrategy = m_scenario.backup;
    ServiceTest::EncryptWith(item, key);
    return Asks(APP_CFG_URI_ITEM, APP_CFG_METHOD_CREATE, BytesOf(item)).header.status;
}

// After a key change that failed in part the files say which key it is.
void Life::ChoosesKey() {
    for (const char* name : {"def", "bak", "cfg"}) {
        if (!m_isKeyKnown && !IsKept(ValueIn(name, m_key)) && IsKept(ValueIn(name, m_otherKey))) {
            m_key.swap(m_otherKey);
        }
    }
}

uint16_t Life::Creates() {
    ChoosesKey();
    const uint16_t status = CreatesWith(m_key);
    const std::string value = Gets();
    if (status == APP_CFG_STATUS_OK && !IsStatus(value) && !IsKept(value)) {
        Loss("created under the fault: " + value);
    }
    return status;
}

std::string Life::Gets() {
    AppCfgDataReq request{m_client->m_handle, {}};
    ServiceTest::Put(request.query, m_format.query);
    const Reply reply = Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_GET, BytesOf(request));
    constexpr size_t VALUE_OFFSET = 2 * sizeof(uint32_t);
    return reply.header.status == APP_CFG_STATUS_OK ? reply.payload.substr(VALUE_OFFSET)
                                                    : "status " + std::to_string(reply.header.status);
}

void Life::Sets() {
    const std::string value = NextValue();
    m_failuresAtChange = Failures();
    AppCfgDataReq request{m_client->m_handle, {}};
    ServiceTest::Put(request.query, std::string(m_format.query) + "|" + value);
    Note(value,
         Asks(APP_CFG_URI_DATA, APP_CFG_METHOD_SET, BytesOf(request)).header.status == APP_CFG_STATUS_OK);
}

uint16_t Life::SetsRaw(bool whole) {
    const std::string value = NextValue();
    const std::string text =
        whole ? m_format.wholeHead + value + m_format.wholeTail : m_format.rawHead + value + m_format.rawTail;
    AppCfgRawDataReq request{m_client->m_handle, {}, static_cast<uint32_t>(text.size()) + 1};
    ServiceTest::Put(request.query, whole ? "" : m_format.rawKey);
    const int failures = m_failuresAtChange = Failures();
    const uint16_t status =
        Asks(APP_CFG_URI_RAW_DATA, APP_CFG_METHOD_SET, BytesOf(request) + text + '\0').header.status;
    Note(value, status == APP_CFG_STATUS_OK);
    if (status == APP_CFG_STATUS_OK && m_isInstant && NothingFailedSince(failures)) {
        m_saved = m_acknowledged;
    }
    return status;
}

void Life::Restores() {
    const int failures = Failures();
    const uint16_t status =
        Asks(APP_CFG_URI_DEFAULT, APP_CFG_METHOD_SET, BytesOf(m_client->m_handle)).header.status;
    const bool isDone = status == APP_CFG_STATUS_OK && NothingFailedSince(failures);
    Note(DEFAULT_VALUE, isDone);
    m_saved = isDone ? m_acknowledged : m_saved;
    const std::string value = isDone ? Gets() : DEFAULT_VALUE;
    if (value != DEFAULT_VALUE && !IsStatus(value)) {
        Trouble("restored, and still " + value);
    }
}

void Life::Rekeys() {
    AppCfgCryptoUpdateReq request{m_client->m_handle, {}, {}};
    ServiceTest::EncryptWith(request, m_format.newKey);
    const int failures = Failures();
    const uint16_t status =
        Asks(APP_CFG_URI_CRYPTO_PARAM, APP_CFG_METHOD_SET, BytesOf(request)).header.status;
    if (status == APP_CFG_STATUS_NOT_FOUND) {
        return;
    }
    if (status != APP_CFG_STATUS_OK) {
        m_otherKey = m_format.newKey;
        m_isKeyKnown = NothingFailedSince(failures);
        return;
    }
    const std::string oldKey = std::exchange(m_key, m_format.newKey);
    m_saved = m_acknowledged;
    for (const char* name : {"cfg", "bak"}) {
        // A waiting strategy may be writing it just now.
        const bool isOld = m_isInstant ? !IsKept(ValueIn(name, m_key))
                                       : m_key != oldKey && ValueIn(name, oldKey) != "(none)";
        if (m_isWritable && isOld) {
            Loss(std::string(name) + " is not in the new key: " + ValueIn(name, m_key));
        }
    }
}

uint16_t Life::Deletes() {
    // An instant strategy has acted already; the others act now. What a shortage kept from being saved is
    // saved now, or the delete is refused.
    const int failures = m_isInstant ? m_failuresAtChange : Failures();
    const uint16_t status =
        Asks(APP_CFG_URI_ITEM, APP_CFG_METHOD_DELETE, BytesOf(m_client->m_handle)).header.status;
    if (status == APP_CFG_STATUS_OK && (m_isShortage || NothingFailedSince(failures))) {
        m_saved = m_acknowledged;
    }
    return status;
}

void Life::Note(const std::string& value, bool isAcknowledged) {
    if (m_isWritable) {
        m_history.push_back(value);
        m_acknowledged = isAcknowledged ? m_history.size() - 1 : m_acknowledged;
    }
}

bool Life::NothingFailedSince(int failures) const {
    return m_isHarmless || Failures() == failures;
}

bool Life::IsKept(const std::string& value) const {
    const auto oldest = m_history.begin() + static_cast<std::ptrdiff_t>(m_saved);
    return std::find(oldest, m_history.end(), value) != m_history.end();
}

std::string Life::ValueIn(const std::string& name, const std::string& key) const {
    const std::string path = m_place.PathOf(name);
    const std::string text = key.empty() ? Content(path) : ServiceTest::Decrypted(path, key);
    const size_t head = text.find(m_format.fileHead);
    if (head == std::string::npos || text.find(m_format.fileEnd, head) == std::string::npos) {
        return "(none)";
    }
    const size_t begin = head + std::strlen(m_format.fileHead);
    return text.substr(begin, text.find(m_format.fileTail, begin) - begin);
}

std::vector<std::string> Life::Keys() const {
    return m_isKeyKnown ? std::vector<std::string>{m_key} : std::vector<std::string>{m_key, m_otherKey};
}

} // namespace FaultTest
