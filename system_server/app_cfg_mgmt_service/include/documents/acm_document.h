#ifndef ACM_DOCUMENT_H
#define ACM_DOCUMENT_H

#include <istream>
#include <ostream>
#include <string>

namespace SystemServer {

// What a manager asks of the document of a format that is written. Values by key are the business of the
// library's configuration class, from which each document derives as well.
class AcmDocument {
public:
    AcmDocument() = default;
    AcmDocument(const AcmDocument&) = delete;
    AcmDocument& operator=(const AcmDocument&) = delete;

    // Replace the document; they hide the library's own. An exception leaves the old document in place.
    virtual void load(const std::string& path) = 0;
    virtual void load(std::istream& stream) = 0;

    // Read and replace a fragment. 0 on success, -1 on failure.
    virtual int GetRawString(const std::string& key, std::string& out) = 0;
    virtual int SetRawString(const std::string& key, const std::string& raw) = 0;

    // Writes the whole document.
    virtual void Save(std::ostream& stream) = 0;

    // Whether the key has a value, and this one can take its place so that the saved file can be loaded
    // again. If so, its length is counted as part of the document.
    virtual bool Admits(const std::string& key, const std::string& value) = 0;

protected:
    ~AcmDocument() = default; // documents are counted and deleted by the library's base class
};

} // namespace SystemServer

#endif
