#ifndef HONEST_CLIENT_H
#define HONEST_CLIENT_H

#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "appcfg/connection.h"
#include "item_model.h"
#include "tally.h"

namespace Endurance {

// The items that all clients use, each with a key of its own; they last as long as the run.
extern const std::array<appcfg::Handle, 2> SHARED_ITEMS;

// The key of one client in both.
std::string SharedKey(unsigned client);

// Uses an item of its own and the shared ones as clients do, and checks every reply against a model. Owned by
// main; runs on a thread of its own.
class HonestClient {
public:
    // Its number decides format and files, the seed all else. Files are made below the directory.
    HonestClient(unsigned number, unsigned seed, const std::string& directory, Tally& tally);

    // Returns when the run has ended, or at the first wrong reply, which ends it.
    void Run();

private:
    void Live();
    void Begin();
    void End();
    void MaybeRemoveFile();
    void Step();

    void Get(size_t count);
    void Set(size_t count);
    void SetPartly();
    void GetFragment();
    void SetFragment();
    void ReplaceFragment();
    void Restore();
    void ChangeKey();
    void ChangeToPlain();
    void AskInVain();
    void UseShared();

    // Makes a request that must be answered so.
    template <class Call>
    void Expect(uint16_t status, appcfg::Request request, const std::string& what, Call call);
    void ExpectText(const std::string& what, const std::string& got, const std::string& expected) const;

    unsigned Pick(unsigned below) { return static_cast<unsigned>(m_random() % below); }
    std::string AnyKey();
    std::string AnyGroup();
    std::string AnyText();
    // Text for that key; sometimes a reference to another.
    std::string AnyValue(const std::string& key);
    std::pair<std::string, std::string> NewMember();

    const unsigned m_number;
    const SystemServer::ConfigStorageType m_format;
    const bool m_hasCopies;
    appcfg::ItemDescription m_description;
    Tally& m_tally;
    std::mt19937 m_random;
    ItemModel m_model;
    std::optional<appcfg::Connection> m_connection;
    std::optional<appcfg::Item> m_item;
    std::array<std::string, 2> m_shared{"0", "0"};
};

} // namespace Endurance

#endif
