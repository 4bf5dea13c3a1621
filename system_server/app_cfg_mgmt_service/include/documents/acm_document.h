#ifndef ACM_DOCUMENT_H
#define ACM_DOCUMENT_H

#include <istream>
#include <ostream>
#include <string>

namespace SystemServer {

// What a manager asks of its document, when the format is one that is written. Values by key come from the
// library's configuration class, which each document derives from as well.
class AcmDocument {
public:
    AcmDocument() = default;
    AcmDocument(const AcmDocument&) = delete;
    AcmDocument& operator=(const AcmDocument&) = delete;

    // Replace the document. They hide the library's own. After an exception the old document stands.
    virtual void load(const std::string& path) = 0;
    virtual void load(std::istream& stream) = 0;

    // Read and replace a fragment. 0, or -1.
    virtual int GetRawString(const std::string& key, std::string& out) = 0;
    virtual int SetRawString(const std::string& key, const std::string& raw) = 0;

    // Writes the whole document.
    virtual void Save(std::ostream& stream) = 0;

    // Whether the value can be stored at a key that exists, so that the saved file can be loaded again.
    virtual bool Admits(const std::string& key, const std::string& value) = 0;

protected:
    ~AcmDocument() = default; // it is deleted as the configuration that it is
};

} // namespace SystemServer

#endif
