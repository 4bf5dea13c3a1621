#ifndef ACM_JSON_CONFIGURATION_H
#define ACM_JSON_CONFIGURATION_H

#include <Poco/Util/JSONConfiguration.h>

#include <istream>
#include <ostream>
#include <string>

namespace SystemServer {

// One JSON file in memory. Owned by its manager, which calls it; the base serves values by key.
// Locks nothing: the manager's document guard is held for every call.
class AcmJsonConfiguration : public Poco::Util::JSONConfiguration {
public:
    // Throws a Poco::Exception for a file that cannot be read, is no JSON, or whose root is no object.
    explicit AcmJsonConfiguration(const std::string& path);

    // Replace the document. They hide the base's, which takes an array for a root and then holds no
    // document at all. After an exception the old document stands.
    void load(const std::string& path);
    void load(std::istream& stream);

    // The value at the key as text, objects and arrays indented by 2; an empty key is the whole document.
    // 0, or -1 when there is none.
    int GetRawString(const std::string& key, std::string& out);

    // Stores raw as a string at the key, making what leads to it; an empty key replaces the whole document
    // by the JSON text raw. 0, or -1 for what cannot be stored.
    int SetRawString(const std::string& key, const std::string& raw);

    // Writes the document, indented by 2. Throws what the stream or the library throws.
    void Save(std::ostream& stream);

    // Whether a text can be written to a file and read back: it is UTF-8.
    static bool IsStorable(const std::string& text);

protected:
    ~AcmJsonConfiguration() override;

private:
    bool IsPaddingBounded(const std::string& key) const;
    uint64_t ArraySize(const std::string& key) const;
};

} // namespace SystemServer

#endif
