#ifndef ACM_JSON_CONFIGURATION_H
#define ACM_JSON_CONFIGURATION_H

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/Util/JSONConfiguration.h>

#include <istream>
#include <ostream>
#include <string>

#include "acm_document.h"
#include "acm_text_bound.h"

namespace SystemServer {

// One JSON file in memory. Owned by its manager, which calls it; the base serves values by key.
// Locks nothing: the manager's document guard is held for every call.
class AcmJsonConfiguration : public Poco::Util::JSONConfiguration, public AcmDocument {
public:
    // Throws a Poco::Exception for a file that cannot be read, is no JSON, or whose root is no object, and
    // AcmLimitException for one that would be written beyond MAX_DOCUMENT_BYTES.
    explicit AcmJsonConfiguration(const std::string& path);

    // The base's load would accept an array as the root and then hold no document at all.
    void load(const std::string& path) override;
    void load(std::istream& stream) override;

    // The value at the key as text, objects and arrays indented by 2; an empty key is the whole document.
    // 0, or -1 when there is none.
    int GetRawString(const std::string& key, std::string& out) override;

    // Stores raw as a string at the key and makes the members that lead to it. With an empty key, raw is the
    // JSON text of a whole new document. 0, or -1 for what cannot be stored.
    int SetRawString(const std::string& key, const std::string& raw) override;

    // Writes the document, indented by 2. Throws what the stream or the library throws.
    void Save(std::ostream& stream) override;

    // As the base has it; see getRaw.
    void setString(const std::string& key, const std::string& value) override;

    // Whether a set would store the value where a get finds it, so that the file can be loaded again: every
    // step of the key exists, the value is UTF-8, and the document does not become too long. The first is
    // checked because the base's lookup skips empty steps and indexes of what is no array, while its setter
    // would make members and nulls for them.
    bool Admits(const std::string& key, const std::string& value) override;

protected:
    ~AcmJsonConfiguration() override;

    // As the base has it, which compiles a regular expression for each step of each key. A plain key that
    // exists is followed without one, through the library's own objects; any other is left to the base.
    bool getRaw(const std::string& key, std::string& value) const override;

private:
    // What the base's setter would find along a key.
    struct SetterPath {
        bool exists = true;             // every step names something that is there
        bool isPlain = true;            // so that a get finds the same
        uint64_t levels = 0;            // names and indexes
        uint64_t padding = 0;           // nulls that it would put in front of the named elements
        uint64_t furthest = 0;          // the most nulls in one array
        Poco::Dynamic::Var value;       // at its end, empty when that does not exist
        Poco::JSON::Object::Ptr object; // that holds it as a member, or null
        Poco::JSON::Array::Ptr array;   // that holds it as an element, or null
        std::string name;               // of the member
        unsigned index = 0;             // of the element
    };

    AcmJsonConfiguration(const Poco::JSON::Object::Ptr& root, const std::string& path);

    SetterPath FollowSetter(const std::string& key) const;
    bool ReserveText(uint64_t growth);
    int StoreRaw(const std::string& key, const std::string& raw);

    // The tree, which the base hides from its subclasses: the same object, whose content is replaced on load.
    Poco::JSON::Object::Ptr m_root;
    AcmTextBound m_textBound;
};

} // namespace SystemServer

#endif
