#include "honest_client.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "appcfg/error.h"

namespace Endurance {

namespace {

using appcfg::Request;
using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

// Documents of some kilobytes, of another size for each client.
constexpr int PLACES = 17;
constexpr size_t FILLER_STEP = 20;

constexpr size_t LONG_TEXT = 2000;

constexpr unsigned MOST_STEPS = 200;
constexpr unsigned MOST_THINKING_MS = 20;

constexpr char KEY_OF_NOTHING[] = "none";

const Format& FormatOf(unsigned client) {
    return FORMATS[client % std::size(FORMATS)];
}

// A raw set of INI takes one value.
Document DocumentOf(unsigned client) {
    const ConfigStorageType storage = FormatOf(client).storage;
    return storage == ConfigStorageType::INI ? Document(storage, 1, 0)
                                             : Document(storage, PLACES, client * FILLER_STEP);
}

} // namespace

const std::array<appcfg::Handle, 2> SHARED_ITEMS{appcfg::Handle("soak", "shared", 0),
                                                 appcfg::Handle("soak", "shared", 1)};

std::string SharedKey(unsigned client) {
    return "all.c" + std::to_string(client);
}

std::string SharedReference(unsigned client) {
    return "all.r" + std::to_string(client);
}

HonestClient::HonestClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally) :
    m_number(number), m_hasCopies(number / 4 % 4 != 0), m_tally(tally), m_random(seed + number),
    m_item(appcfg::Handle("soak", "client", number), FormatOf(number), {}, DocumentOf(number)) {
    const std::string own = directory + "/client" + std::to_string(number);
    std::filesystem::create_directory(own);
    std::filesystem::permissions(own, std::filesystem::perms::all); // the service is another user
    m_item.StandIn(own);
    m_item.WriteFiles(Start::NEITHER, false);
}

void HonestClient::Run() {
    try {
        while (!m_tally.HasEnded()) {
            Live();
        }
    } catch (const std::exception& fault) {
        m_tally.Fail("client " + std::to_string(m_number) + ", " + m_item.Describe() + ": " + fault.what());
    }
}

void HonestClient::Live() {
    Begin();
    for (unsigned steps = 1 + Pick(MOST_STEPS); steps > 0 && !m_tally.HasEnded(); --steps) {
        Step();
        std::this_thread::sleep_for(std::chrono::milliseconds(Pick(MOST_THINKING_MS)));
    }
    End();
}

// The item that the last life left alive is replaced.
void HonestClient::Begin() {
    if (!m_connection) {
        m_connection.emplace();
    }
    m_item.ChooseStrategies(
        {static_cast<ConfigSaveStrategy>(Pick(4)),
         m_hasCopies ? static_cast<ConfigBackupStrategy>(1 + Pick(3)) : ConfigBackupStrategy::NONE});
    Expect(200, Request::CREATE, "", [&] { m_item.Create(*m_connection); });
    m_hasChanged = false;
    Look();
}

void HonestClient::End() {
    if (IsJson() && m_item.Description().encryption) {
        ChangeKey(true); // or its file could not be read at the next creation
    }
    switch (Pick(3)) {
    case 0:
        Expect(200, Request::DELETE_ITEM, "", [&] { m_item.Delete(*m_connection); });
        Expect(404, Request::RAW_GET, "of a deleted item", [&] { m_item.Open(*m_connection).GetRaw(); });
        MaybeRemoveFile();
        break;
    case 1:
        m_connection.reset();
        m_tally.Count("connections closed");
        m_item.NoteEnd(0);
        break;
    default: // created anew while it lives
        m_item.NoteEnd(0);
        break;
    }
}

// The next creation then finds in the backup what the file would have held. An instant backup does so
// once the item has changed: before, it may hold what an earlier life did not save.
void HonestClient::MaybeRemoveFile() {
    if (m_hasCopies && m_item.IsSaved() && m_hasChanged && Pick(2) == 0) {
        std::filesystem::remove(m_item.Description().path);
        m_tally.Count("files removed");
    }
}

void HonestClient::Step() {
    const unsigned pick = Pick(100);
    if (pick < 35) {
        Look();
    } else if (pick < 55) {
        Change(Request::SET, &TrackedItem::SendSet);
    } else if (pick < 58) {
        SetPartly();
    } else if (pick < 78) {
        Change(Request::RAW_SET, &TrackedItem::SendRaw);
    } else if (pick < 80) {
        Restore();
    } else if (pick < 82) {
        ChangeKey(m_item.Description().encryption && Pick(3) == 0);
    } else if (pick < 89) {
        AskInVain();
    } else {
        UseShared();
    }
}

void HonestClient::Look() {
    Expect(200, Request::GET, "", [&] {
        const int64_t expected = m_item.GetLedger().Accepted();
        if (m_item.Found(*m_connection) != expected) {
            throw std::runtime_error("it does not hold " + std::to_string(expected));
        }
    });
}

// What comes before the refused pair stays in memory, until the set behind it.
void HonestClient::SetPartly() {
    const auto [key, value] = m_item.GetDocument().Values(0).front();
    appcfg::Item item = m_item.Open(*m_connection);
    Expect(400, Request::SET, "of a missing key", [&, key = key, value = value] {
        item.SetMany({{key, value}, {KEY_OF_NOTHING, "x"}});
    });
    Expect(200, Request::GET, "", [&, key = key, value = value] { ExpectText(key, item.Get(key), value); });
    Change(Request::SET, &TrackedItem::SendSet);
}

void HonestClient::Restore() {
    if (m_item.IsWritten()) {
        Change(Request::RESTORE, &TrackedItem::Restore);
    } else {
        Expect(400, Request::RESTORE, "", [&] { m_item.Restore(*m_connection); });
    }
}

void HonestClient::ChangeKey(bool toPlain) {
    if (IsJson() && m_hasCopies) {
        return; // its default can be encrypted once, and not be read again
    }
    const Key key = toPlain ? std::nullopt : Key(KeyOf(Pick(1000)));
    Expect(200, Request::CHANGE_KEY, "", [&] { m_item.ChangeKey(*m_connection, key); });
    m_hasChanged = true;
}

void HonestClient::AskInVain() {
    const bool isIni = !m_item.IsWritten();
    const std::string malformed = isIni ? "extra=1=2" : IsJson() ? "{\"k00\": " : "<body><k00></body>";
    const appcfg::Handle nobody("soak", "nobody", m_number);
    appcfg::ItemDescription nothing{nobody};
    nothing.path = m_item.Description().path + ".none";
    nothing.backupPath = nothing.path + ".backup";
    nothing.defaultPath = nothing.path + ".default";
    appcfg::Item item = m_item.Open(*m_connection);
    switch (Pick(5)) {
    case 0:
        Expect(400, Request::GET, "of a missing key", [&] { item.Get(KEY_OF_NOTHING); });
        break;
    case 1:
        Expect(isIni ? 200 : 404, Request::RAW_GET, "of a missing key", [&] { item.GetRaw(KEY_OF_NOTHING); });
        break;
    case 2:
        Expect(400, Request::RAW_SET, "of malformed text", [&] { item.SetRaw("", malformed); });
        break;
    case 3:
        Expect(404, Request::SET, "of a missing item", [&] { m_connection->Open(nobody).Set("k00", "x"); });
        break;
    default:
        Expect(404, Request::CREATE, "without files", [&] { m_connection->Create(nothing); });
        break;
    }
}

void HonestClient::UseShared() {
    const unsigned which = Pick(SHARED_ITEMS.size());
    appcfg::Item item = m_connection->Open(SHARED_ITEMS.at(which));
    std::string& own = m_shared.at(which);
    const std::string key = SharedKey(m_number);
    const unsigned pick = Pick(3);
    if (pick == 0) {
        const std::string value = AnyText();
        Expect(200, Request::SET, "shared " + key, [&] { item.Set(key, value); });
        own = value;
    } else if (pick == 1) {
        Expect(200, Request::GET, "shared " + key, [&] {
            const std::vector<std::string> got = item.GetMany({key, SharedReference(m_number)});
            ExpectText(key, got[0], own);
            ExpectText(SharedReference(m_number), got[1], own);
        });
    } else {
        Expect(200, Request::GET, "another's key", [&] { item.Get(SharedKey(0)); });
    }
}

template <class Call>
void HonestClient::Expect(uint16_t status, Request request, const std::string& what, Call call) {
    uint16_t got = 200;
    try {
        call();
    } catch (const appcfg::RequestRefused& refused) {
        got = refused.Status();
    }
    m_tally.Count(request, got);
    if (got != status) {
        throw std::runtime_error(std::string(appcfg::RequestName(request)) + " " + what + ": status " +
                                 std::to_string(got) + ", expected " + std::to_string(status));
    }
}

void HonestClient::Change(Request request, Verb verb) {
    Expect(200, request, "", [&] { (m_item.*verb)(*m_connection); });
    m_hasChanged = true;
}

void HonestClient::ExpectText(const std::string& what, const std::string& got, const std::string& expected) {
    if (got != expected) {
        throw std::runtime_error(what + " is '" + got + "', expected '" + expected + "'");
    }
}

std::string HonestClient::AnyText() {
    static const std::array<std::string, 16> PIECES{"a", "b",  "kitchen", "7", " ", "&", "<b>", "\"",
                                                    "'", "\\", "/",       ":", "é", "€", "{",   "]"};
    std::string text = "v";
    const size_t length = Pick(50) == 0 ? Pick(LONG_TEXT) : Pick(30);
    while (text.size() < length) {
        text += PIECES.at(Pick(PIECES.size()));
    }
    return text + std::to_string(Pick(1000));
}

bool HonestClient::IsJson() const {
    return m_item.Description().storage == ConfigStorageType::JSON;
}

} // namespace Endurance
