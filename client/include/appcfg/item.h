// One item, as a client works with it.
#ifndef APPCFG_ITEM_H
#define APPCFG_ITEM_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "appcfg/handle.h"
#include "appcfg/item_description.h"
#include "appcfg/value.h"

namespace appcfg {

class Channel;

// Made by a Connection, which must outlive the use of it (afterwards every call is a ConnectionError). An
// item that was created, rather than opened, is deleted when this object goes away, unless this connection
// has deleted it or created it anew since: then the newer object owns it. What other connections do is not
// known here: an item that another client created anew is deleted too.
// Used by the thread that uses the connection.
//
// Every call is one request. It throws RequestRefused, InvalidArgument or ConnectionError.
class Item {
public:
    Item(Item&& other) noexcept;
    Item& operator=(Item&& other) noexcept;
    // Deletes the item if it is owned; a failure is ignored, since closing the connection deletes it too.
    ~Item();

    const Handle& GetHandle() const { return m_handle; }

    // The value as text. A key holds no comma or NUL, is not empty and has no blank at either end.
    std::string Get(const std::string& key) const;

    // The values of several keys, in their order, in one request. All or nothing: a missing key fails it.
    // More keys than one request holds (12,287 bytes with the commas) are refused and never split, since
    // another client's change could come between the parts.
    std::vector<std::string> GetMany(const std::vector<std::string>& keys) const;

    // The value as a bool, an integer or a floating-point number; ValueError when it is none (see value.h).
    template <class T>
    T GetAs(const std::string& key) const {
        return ParseValue<T>(Get(key));
    }
    bool GetBool(const std::string& key) const { return GetAs<bool>(key); }
    int64_t GetInt(const std::string& key) const { return GetAs<int64_t>(key); }
    uint64_t GetUint(const std::string& key) const { return GetAs<uint64_t>(key); }
    double GetDouble(const std::string& key) const { return GetAs<double>(key); }

    // Changes the value of a key that the document has. Neither may hold a comma, a "|" or a NUL.
    void Set(const std::string& key, const std::string& value);

    // Several values in one request, never split. The service applies them in order and stops at the first
    // that it refuses: those before it stay changed in memory.
    void SetMany(const std::vector<std::pair<std::string, std::string>>& values);

    void SetBool(const std::string& key, bool value) { Set(key, FormatValue(value)); }
    void SetInt(const std::string& key, int64_t value) { Set(key, FormatValue(value)); }
    void SetUint(const std::string& key, uint64_t value) { Set(key, FormatValue(value)); }
    void SetDouble(const std::string& key, double value) { Set(key, FormatValue(value)); }

    // A fragment of the document as text, all of it for the empty key. Keys have at most 127 bytes.
    std::string GetRaw(const std::string& key = std::string()) const;

    // Replaces a fragment (JSON: the whole document for the empty key, otherwise one value, stored as a
    // string; XML: grafts the element below the key). Without NUL; the whole record fits 16 MiB.
    void SetRaw(const std::string& key, const std::string& data);

    // Puts the default file in place of the file and its backup, and loads it. That it returns says that the
    // service has tried: when the default is missing or cannot be loaded, the values stay as they were, also
    // after the files have been replaced. Compare them where it matters.
    void Restore();

    // Rewrites the default file, the file and its backup encrypted with the key, or plain.
    void ChangeKey(const EncryptionKey& key);
    void ChangeToPlain();

    // Ends the item at the service, whoever created it; also releases it.
    void Delete();

    // Leaves the item to its connection: it then lives until that closes.
    void Release() noexcept { m_claim = NO_CLAIM; }

private:
    friend class Connection;
    static constexpr uint64_t NO_CLAIM = 0;

    Item(std::weak_ptr<Channel> channel, Handle handle, uint64_t claim);

    std::shared_ptr<Channel> OpenChannel() const;
    void DeleteIfOwned() noexcept;
    void SendCryptoUpdate(const EncryptionKey* key);

    std::weak_ptr<Channel> m_channel;
    Handle m_handle;
    uint64_t m_claim; // the connection's number for the item that this object ends
};

} // namespace appcfg

#endif
