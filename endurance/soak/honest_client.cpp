#include "honest_client.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include "appcfg/error.h"

namespace Endurance {

namespace {

using appcfg::Request;
using SystemServer::ConfigBackupStrategy;
using SystemServer::ConfigSaveStrategy;
using SystemServer::ConfigStorageType;

constexpr unsigned GROUPS = 5;
constexpr unsigned DEFAULT_MEMBERS = 6;
// What a group may grow to; then it is replaced or restored. A document stays within some ten kilobytes.
constexpr unsigned MOST_MEMBERS = 40;
constexpr size_t LONG_TEXT = 2000;

constexpr unsigned MOST_STEPS = 200;
constexpr unsigned MOST_THINKING_MS = 20;

constexpr char KEY_OF_NOTHING[] = "g0.none";
// Never a reference itself, and in every document.
constexpr char REFERRED_KEY[] = "g0.k000";

std::string MemberName(unsigned number) {
    const std::string digits = std::to_string(number);
    return "k" + std::string(3 - digits.size(), '0') + digits;
}

std::string GroupName(unsigned number) {
    return "g" + std::to_string(number);
}

Values Document(unsigned members, const std::string& text) {
    Values values;
    for (unsigned group = 0; group < GROUPS; ++group) {
        for (unsigned member = 0; member < members; ++member) {
            values[GroupName(group) + "." + MemberName(member)] = text;
        }
    }
    return values;
}

ConfigStorageType FormatOf(unsigned client) {
    constexpr std::array<ConfigStorageType, 5> FORMATS{ConfigStorageType::JSON, ConfigStorageType::XML,
                                                       ConfigStorageType::JSON, ConfigStorageType::XML,
                                                       ConfigStorageType::INI};
    return FORMATS.at(client % FORMATS.size());
}

// Saving puts elements on lines of their own.
std::string WithoutBlanksBetweenElements(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const size_t last = c == '<' ? result.find_last_not_of(" \t\n") : std::string::npos;
        if (last != std::string::npos && result[last] == '>') {
            result.resize(last + 1);
        }
        result += c;
    }
    return result;
}

} // namespace

const std::array<appcfg::Handle, 2> SHARED_ITEMS{appcfg::Handle("soak", "shared", 0),
                                                 appcfg::Handle("soak", "shared", 1)};

std::string SharedKey(unsigned client) {
    return "all.c" + std::to_string(client);
}

HonestClient::HonestClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally) :
    m_number(number), m_format(FormatOf(number)),
    m_hasCopies(number / 5 % 4 != 0), m_description{appcfg::Handle("soak", "client", number)}, m_tally(tally),
    m_random(seed + number), m_model(m_format, m_hasCopies, Document(DEFAULT_MEMBERS, "default")) {
    const std::string path = directory + "/client" + std::to_string(number);
    m_description.storage = m_format;
    m_description.path = path;
    m_description.backupPath = m_hasCopies ? path + ".backup" : "";
    m_description.defaultPath = m_hasCopies ? path + ".default" : "";
    // Without a backup path, a file that is missing is no reason to look at the default.
    std::ofstream(m_hasCopies ? m_description.defaultPath : path) << TextOf(m_format, m_model.All());
}

void HonestClient::Run() {
    try {
        while (!m_tally.HasEnded()) {
            Live();
        }
    } catch (const std::exception& fault) {
        m_tally.Fail("client " + std::to_string(m_number) + ", " + m_description.path + ": " + fault.what());
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

void HonestClient::Begin() {
    if (!m_connection) {
        m_connection.emplace();
    }
    m_description.saveStrategy = static_cast<ConfigSaveStrategy>(Pick(4));
    m_description.backupStrategy =
        m_hasCopies ? static_cast<ConfigBackupStrategy>(1 + Pick(3)) : ConfigBackupStrategy::NONE;
    Expect(200, Request::CREATE, "", [&] { m_item.emplace(m_connection->Create(m_description)); });
    m_model.Begin(m_description.saveStrategy);
    GetFragment();
}

void HonestClient::End() {
    if (m_format == ConfigStorageType::JSON && m_description.encryption) {
        ChangeToPlain(); // or its file could not be read at the next creation
    }
    m_model.End();
    switch (Pick(4)) {
    case 0:
        Expect(200, Request::DELETE_ITEM, "", [&] { m_item->Delete(); });
        Expect(404, Request::GET, "of a deleted item", [&] { m_item->Get(REFERRED_KEY); });
        MaybeRemoveFile();
        break;
    case 1:
        m_connection.reset();
        m_tally.Count("connections closed");
        break;
    case 2: // created anew while it lives
        m_item->Release();
        break;
    default: // deleted by the object's end
        break;
    }
    m_item.reset();
}

// The next creation then finds in the backup what the file would have held. An instant backup does so
// once the item has changed: before, it may hold what an earlier life did not save.
void HonestClient::MaybeRemoveFile() {
    const bool isBackedUp = m_hasCopies && m_format != ConfigStorageType::INI &&
                            m_description.saveStrategy != ConfigSaveStrategy::NONE && m_model.HasChanged();
    if (isBackedUp && Pick(2) == 0) {
        std::filesystem::remove(m_description.path);
        m_tally.Count("files removed");
    }
}

void HonestClient::Step() {
    const unsigned pick = Pick(100);
    if (pick < 32) {
        Get(pick < 20 ? 1 : 2 + Pick(20));
    } else if (pick < 54) {
        Set(pick < 44 ? 1 : 2 + Pick(3));
    } else if (pick < 57) {
        SetPartly();
    } else if (pick < 67) {
        GetFragment();
    } else if (pick < 79) {
        SetFragment();
    } else if (pick < 81) {
        ReplaceFragment();
    } else if (pick < 83) {
        Restore();
    } else if (pick < 85) {
        ChangeKey();
    } else if (pick < 91) {
        AskInVain();
    } else {
        UseShared();
    }
}

void HonestClient::Get(size_t count) {
    std::vector<std::string> keys(count);
    std::generate(keys.begin(), keys.end(), [this] { return AnyKey(); });
    Expect(200, Request::GET, keys.front(), [&] {
        const std::vector<std::string> got = m_item->GetMany(keys);
        for (size_t i = 0; i < keys.size(); ++i) {
            ExpectText(keys[i], got[i], m_model.Read(keys[i]));
        }
    });
}

void HonestClient::Set(size_t count) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t i = 0; i < count; ++i) {
        const std::string key = AnyKey();
        pairs.emplace_back(key, AnyValue(key));
    }
    Expect(200, Request::SET, pairs.front().first, [&] { m_item->SetMany(pairs); });
    for (const auto& [key, value] : pairs) {
        m_model.Set(key, value);
    }
    m_model.Announce();
}

// What comes before the refused pair stays in memory; the set behind it has that saved, too.
void HonestClient::SetPartly() {
    const std::string key = AnyKey();
    const std::string value = AnyValue(key);
    Expect(400, Request::SET, "of a missing key", [&] {
        m_item->SetMany({{key, value}, {KEY_OF_NOTHING, "x"}});
    });
    m_model.Set(key, value);
    Set(1);
}

void HonestClient::GetFragment() {
    const bool isXml = m_format == ConfigStorageType::XML;
    std::string key;
    std::string expected = TextOf(m_format, m_model.All());
    if (Pick(2) == 0) {
        key = AnyGroup();
        expected = GroupTextOf(m_format, m_model.All(), key);
    } else if (Pick(3) == 0) {
        key = AnyKey();
        const std::string& value = m_model.All().at(key);
        expected = isXml ? XmlElementOf(key.substr(key.find('.') + 1), value) : value;
    }
    if (m_format == ConfigStorageType::INI) {
        expected.clear();
    }
    Expect(200, Request::RAW_GET, key, [&] {
        const std::string text = m_item->GetRaw(key);
        ExpectText("'" + key + "'", isXml ? WithoutBlanksBetweenElements(text) : text, expected);
    });
}

void HonestClient::SetFragment() {
    const auto [group, name] = NewMember();
    const std::string key = group + "." + name;
    const std::string value = AnyValue(key);
    Expect(200, Request::RAW_SET, key, [&, group = group, name = name] {
        if (m_format == ConfigStorageType::JSON) {
            m_item->SetRaw(key, value);
        } else {
            m_item->SetRaw(group, m_format == ConfigStorageType::XML ? XmlElementOf(name, value)
                                                                     : name + " = " + value);
        }
    });
    m_model.Set(key, value);
    m_model.Announce();
}

// A JSON document as a whole, one group of an XML document.
void HonestClient::ReplaceFragment() {
    if (m_format == ConfigStorageType::INI) {
        return;
    }
    const bool isXml = m_format == ConfigStorageType::XML;
    const std::string replaced = isXml ? AnyGroup() : "";
    Values values = Document(1 + Pick(MOST_MEMBERS), AnyText());
    Values fresh = values;
    if (isXml) {
        fresh = m_model.All();
        fresh.erase(fresh.lower_bound(replaced + "."), fresh.lower_bound(replaced + "/"));
        for (const auto& [name, value] : MembersOf(values, replaced)) {
            fresh[replaced + "." + name] = value;
        }
    }
    const std::string text = isXml ? GroupTextOf(m_format, values, replaced) : TextOf(m_format, values);
    Expect(200, Request::RAW_SET, "'" + replaced + "'", [&] { m_item->SetRaw("", text); });
    m_model.Replace(std::move(fresh));
    m_model.Announce();
}

void HonestClient::Restore() {
    const bool isIni = m_format == ConfigStorageType::INI;
    Expect(isIni ? 400 : 200, Request::RESTORE, "", [&] { m_item->Restore(); });
    if (!isIni) {
        m_model.Restore();
    }
}

void HonestClient::ChangeKey() {
    if (m_format == ConfigStorageType::JSON && m_hasCopies) {
        return; // its default can be encrypted once, and not be read again
    }
    if (m_description.encryption && Pick(3) == 0) {
        ChangeToPlain();
        return;
    }
    appcfg::EncryptionKey key;
    for (uint8_t& byte : key.key) {
        byte = static_cast<uint8_t>(Pick(256));
    }
    key.iv.fill(static_cast<uint8_t>(Pick(256)));
    Expect(200, Request::CHANGE_KEY, "", [&] { m_item->ChangeKey(key); });
    m_model.Rewrite();
    if (m_format != ConfigStorageType::INI) { // whose files are never written
        m_description.encryption = key;
    }
}

void HonestClient::ChangeToPlain() {
    Expect(200, Request::CHANGE_KEY, "to plain", [&] { m_item->ChangeToPlain(); });
    m_model.Rewrite();
    m_description.encryption.reset();
}

void HonestClient::AskInVain() {
    const std::map<ConfigStorageType, std::string> malformed{{ConfigStorageType::JSON, "{\"g0\": "},
                                                             {ConfigStorageType::XML, "<g0><k000></g0>"},
                                                             {ConfigStorageType::INI, "extra=1=2"}};
    const appcfg::Handle nobody("soak", "nobody", m_number);
    appcfg::ItemDescription nothing{nobody};
    nothing.path = m_description.path + ".none";
    nothing.backupPath = nothing.path + ".backup";
    nothing.defaultPath = nothing.path + ".default";
    switch (Pick(5)) {
    case 0:
        Expect(400, Request::GET, "of a missing key", [&] { m_item->Get(KEY_OF_NOTHING); });
        break;
    case 1:
        Expect(m_format == ConfigStorageType::INI ? 200 : 404, Request::RAW_GET, "of a missing key",
               [&] { m_item->GetRaw(KEY_OF_NOTHING); });
        break;
    case 2:
        Expect(400, Request::RAW_SET, "of malformed text",
               [&] { m_item->SetRaw("", malformed.at(m_format)); });
        break;
    case 3:
        Expect(404, Request::SET, "of a missing item",
               [&] { m_connection->Open(nobody).Set(REFERRED_KEY, "x"); });
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
        Expect(200, Request::GET, "shared " + key, [&] { ExpectText("shared " + key, item.Get(key), own); });
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

void HonestClient::ExpectText(const std::string& what, const std::string& got,
                              const std::string& expected) const {
    if (got == expected) {
        return;
    }
    size_t at = 0;
    while (at < got.size() && at < expected.size() && got[at] == expected[at]) {
        ++at;
    }
    const size_t from = at < 20 ? 0 : at - 20;
    throw std::runtime_error("value of " + what + " differs at byte " + std::to_string(at) + ": got '" +
                             got.substr(from, 80) + "', expected '" + expected.substr(from, 80) + "'");
}

std::string HonestClient::AnyKey() {
    const std::string group = AnyGroup();
    const Values members = MembersOf(m_model.All(), group);
    return group + "." + std::next(members.begin(), Pick(static_cast<unsigned>(members.size())))->first;
}

std::string HonestClient::AnyGroup() {
    return GroupName(Pick(GROUPS));
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

std::string HonestClient::AnyValue(const std::string& key) {
    return key != REFERRED_KEY && Pick(10) == 0 ? std::string("${") + REFERRED_KEY + "}" : AnyText();
}

// One behind the last of its group, or one that exists.
std::pair<std::string, std::string> HonestClient::NewMember() {
    if (m_format == ConfigStorageType::INI) {
        return {AnyGroup(), "extra"};
    }
    const std::string group = AnyGroup();
    const unsigned count = GroupsOf(m_model.All()).at(group);
    const unsigned number = count < MOST_MEMBERS && Pick(2) == 0 ? count : Pick(count);
    return {group, MemberName(number)};
}

} // namespace Endurance
