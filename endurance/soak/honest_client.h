#ifndef HONEST_CLIENT_H
#define HONEST_CLIENT_H

#include <thread>

#include "tally.h"
#include "tracked_item.h"

namespace Endurance {

// Documents of some kilobytes, of another size for each client.
constexpr int PLACES = 17;
constexpr size_t FILLER_STEP = 20;

constexpr unsigned LONG_TEXT = 2000;

constexpr unsigned MOST_STEPS = 200;
constexpr unsigned MOST_THINKING_MS = 20;

constexpr char KEY_OF_NOTHING[] = "none";

inline const Format& FormatOf(unsigned client) {
    return FORMATS[client % std::size(FORMATS)];
}

// A raw set of INI takes one value.
inline Document DocumentOf(unsigned client) {
    const ConfigStorageType storage = FormatOf(client).storage;
    return storage == ConfigStorageType::INI ? Document(storage, 1, 0)
                                             : Document(storage, PLACES, client * FILLER_STEP);
}

// The item that all clients use, each with a key of its own; it lasts as long as the run.
inline const appcfg::Handle SHARED_ITEM("soak", "shared");

inline std::string SharedKey(unsigned client) {
    return "c" + std::to_string(client);
}

// Uses an item of its own and the shared one as clients do, and checks every reply. No call fails and
// nothing crashes here, so that the ledger says exactly which number the item holds. Owned by main; runs on a
// thread of its own.
class HonestClient {
public:
    // Its number decides format and files, the seed all else. Files are made below the directory.
    HonestClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally) :
        m_number(number), m_isJson(FormatOf(number).storage == ConfigStorageType::JSON),
        m_hasCopies(number / 4 % 4 != 0), m_tally(tally), m_dice(seed + number),
        m_item(appcfg::Handle("soak", "client", number), FormatOf(number), {}, DocumentOf(number)) {
        m_item.StandIn(OpenDirectory(directory + "/client" + std::to_string(number)));
        m_item.WriteFiles(Start::NEITHER, false);
    }

    // From one creation of its item to the end of that. Throws at the first wrong reply.
    void Live() {
        Begin();
        for (unsigned steps = 1 + m_dice.Pick(MOST_STEPS); steps > 0 && !m_tally.HasEnded(); --steps) {
            Step();
            std::this_thread::sleep_for(std::chrono::milliseconds(m_dice.Pick(MOST_THINKING_MS)));
        }
        End();
    }

    std::string Describe() const { return m_item.Describe(); }

private:
    using Verb = void (TrackedItem::*)(appcfg::Connection&);

    // The item that the last life left alive is replaced.
    void Begin() {
        if (!m_connection) {
            m_connection.emplace();
        }
        m_item.ChooseStrategies(
            {static_cast<ConfigStrategy>(m_dice.Pick(4)),
             m_hasCopies ? static_cast<ConfigStrategy>(1 + m_dice.Pick(3)) : ConfigStrategy::NONE});
        Change("create", &TrackedItem::Create);
        m_hasChanged = false;
        Look();
    }

    // After a deletion the file may be removed: the next creation finds in the backup what it would have
    // held. An instant backup does so once the item has changed: before, it may hold what an earlier life
    // did not save.
    void End() {
        if (m_isJson && m_item.Description().encryption) {
            ChangeKey(true); // or its file could not be read at the next creation
        }
        const unsigned pick = m_dice.Pick(3);
        if (pick == 0) {
            Expect(200, "delete", [&] { m_item.Delete(*m_connection); });
            Expect(404, "raw get of a deleted item", [&] { m_item.Open(*m_connection).GetRaw(); });
            if (m_hasCopies && m_item.IsSaved() && m_hasChanged && m_dice.Pick(2) == 0) {
                std::filesystem::remove(m_item.Description().path);
            }
            return;
        }
        if (pick == 1) {
            m_connection.reset();
        }
        m_item.NoteEnd(0); // or it is created anew while it lives
    }

    void Step() {
        const unsigned pick = m_dice.Pick(100);
        if (pick < 35) {
            Look();
        } else if (pick < 55) {
            Change("set", &TrackedItem::SendSet);
        } else if (pick < 58) {
            SetPartly();
        } else if (pick < 78) {
            Change("raw set", &TrackedItem::SendRaw);
        } else if (pick < 80) {
            Restore();
        } else if (pick < 82) {
            ChangeKey(m_item.Description().encryption && m_dice.Pick(3) == 0);
        } else if (pick < 85) {
            AskInVain();
        } else {
            UseShared();
        }
    }

    void Look() {
        Expect(200, "get", [&] {
            const int64_t expected = m_item.GetLedger().Accepted();
            Require(m_item.Found(*m_connection) == expected, "it does not hold " + std::to_string(expected));
        });
    }

    // What comes before the refused pair stays in memory, until the change behind it. An instant item's save
    // may have it in the file by then; a raw set is written before it is answered.
    void SetPartly() {
        const auto [key, value] = m_item.GetDocument().Values(0).front();
        appcfg::Item item = m_item.Open(*m_connection);
        Expect(400, "set of a missing key", [&, key = key, value = value] {
            item.SetMany({{key, value}, {KEY_OF_NOTHING, "x"}});
        });
        Expect(200, "get", [&, key = key, value = value] {
            Require(item.Get(key) == value, "what was set partly is gone");
        });
        Change("set", m_item.IsReloadedByRestore() ? &TrackedItem::SendRaw : &TrackedItem::SendSet);
    }

    // Where it only loads the file, the item holds what was written before or set since, and by the raw set
    // behind it one number again.
    void Restore() {
        if (!m_item.IsWritten()) {
            Expect(400, "restore", [&] { m_item.Restore(*m_connection); });
            return;
        }
        Change("restore", &TrackedItem::Restore);
        if (m_item.IsReloadedByRestore()) {
            Require(m_item.HoldsSaved(*m_connection), "it holds what was neither written nor set");
            Change("raw set", &TrackedItem::SendRaw);
        }
    }

    void ChangeKey(bool toPlain) {
        if (m_isJson && m_hasCopies) {
            return; // its default can be encrypted once, and not be read again
        }
        const Key key = toPlain ? std::nullopt : Key(KeyOf(m_dice.Pick(1000)));
        Expect(200, "key change", [&] { m_item.ChangeKey(*m_connection, key); });
        m_hasChanged = true;
    }

    // Requests that are refused.
    void AskInVain() {
        const bool isIni = !m_item.IsWritten();
        const std::string malformed = isIni ? "extra=1=2" : m_isJson ? "{\"k00\": " : "<body><k00></body>";
        const appcfg::Handle nobody("soak", "nobody", m_number);
        appcfg::ItemDescription nothing{nobody};
        nothing.path = m_item.Description().path + ".none";
        nothing.backupPath = nothing.path + ".backup";
        nothing.defaultPath = nothing.path + ".default";
        appcfg::Item item = m_item.Open(*m_connection);
        Expect(400, "get of a missing key", [&] { item.Get(KEY_OF_NOTHING); });
        Expect(isIni ? 200 : 404, "raw get of a missing key", [&] { item.GetRaw(KEY_OF_NOTHING); });
        Expect(400, "raw set of malformed text", [&] { item.SetRaw("", malformed); });
        Expect(404, "set of a missing item", [&] { m_connection->Open(nobody).Set("k00", "x"); });
        Expect(404, "create without files", [&] { m_connection->Create(nothing); });
    }

    void UseShared() {
        appcfg::Item item = m_connection->Open(SHARED_ITEM);
        Expect(200, "get of shared keys", [&] {
            Require(item.GetMany({SharedKey(m_number), SharedKey(0)})[0] == m_shared,
                    "it does not hold '" + m_shared + "'");
        });
        m_shared = AnyText();
        Expect(200, "set of a shared key", [&] { item.Set(SharedKey(m_number), m_shared); });
    }

    // Makes a request that must be answered so.
    template <class Call>
    void Expect(uint16_t status, const std::string& what, Call call) {
        uint16_t got = 200;
        try {
            call();
        } catch (const appcfg::RequestRefused& refused) {
            got = refused.Status();
        }
        m_tally.CountReply();
        Require(got == status,
                what + ": status " + std::to_string(got) + ", expected " + std::to_string(status));
    }

    void Change(const std::string& what, Verb verb) {
        Expect(200, what, [&] { (m_item.*verb)(*m_connection); });
        m_hasChanged = true;
    }

    std::string AnyText() {
        static const std::string CHARACTERS = "ab7 &<>\"'\\/:{[]";
        std::string text = "vé€";
        for (size_t left = m_dice.Pick(50) == 0 ? LONG_TEXT : m_dice.Pick(30); left > 0; --left) {
            text += CHARACTERS[m_dice.Pick(CHARACTERS.size())];
        }
        return text + std::to_string(m_dice.Pick(1000));
    }

    const unsigned m_number;
    const bool m_isJson;
    const bool m_hasCopies; // a backup strategy, and with it a backup and a default
    Tally& m_tally;
    Dice m_dice;
    TrackedItem m_item;
    bool m_hasChanged = false; // since its creation
    std::optional<appcfg::Connection> m_connection;
    std::string m_shared = "0";
};

} // namespace Endurance

#endif
