#ifndef HONEST_CLIENT_H
#define HONEST_CLIENT_H

#include <array>
#include <optional>
#include <random>
#include <string>

#include "appcfg/connection.h"
#include "tally.h"
#include "tracked_item.h"

namespace Endurance {

// The items that all clients use, each with a key of its own, and one that refers to it; they last as long as
// the run.
extern const std::array<appcfg::Handle, 2> SHARED_ITEMS;
std::string SharedKey(unsigned client);
std::string SharedReference(unsigned client);

// Uses an item of its own and the shared ones as clients do, and checks every reply. No call fails and
// nothing crashes here, so that the ledger says exactly which number the item holds. Owned by main; runs on a
// thread of its own.
class HonestClient {
public:
    // Its number decides format and files, the seed all else. Files are made below the directory.
    HonestClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally);

    // Returns when the run has ended, or at the first wrong reply, which ends it.
    void Run();

private:
    using Verb = void (TrackedItem::*)(appcfg::Connection&);

    void Live();
    void Begin();
    void End();
    void MaybeRemoveFile();
    void Step();

    void Look();
    void SetPartly();
    void Restore();
    void ChangeKey(bool toPlain);
    void AskInVain();
    void UseShared();

    // Makes a request that must be answered so.
    template <class Call>
    void Expect(uint16_t status, appcfg::Request request, const std::string& what, Call call);
    void Change(appcfg::Request request, Verb verb);
    static void ExpectText(const std::string& what, const std::string& got, const std::string& expected);

    unsigned Pick(unsigned below) { return static_cast<unsigned>(m_random() % below); }
    std::string AnyText();
    bool IsJson() const;

    const unsigned m_number;
    const bool m_hasCopies; // a backup strategy, and with it a backup and a default
    Tally& m_tally;
    std::mt19937 m_random;
    TrackedItem m_item;
    bool m_hasChanged = false; // since its creation
    std::optional<appcfg::Connection> m_connection;
    std::array<std::string, 2> m_shared{"0", "0"};
};

} // namespace Endurance

#endif
