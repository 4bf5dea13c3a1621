// The internal entities that a DOCTYPE declares, and what their references add to the document.
#ifndef ACM_XML_ENTITIES_H
#define ACM_XML_ENTITIES_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace SystemServer {

// Bounds the expansion of entities from their declarations, before the parser meets a reference to one: an
// entity adds its length once for each "&name;" of the document. Owned by the guard of one parse; no locks.
class AcmXmlEntities {
public:
    // The document's text in its own encoding; must outlive this object.
    explicit AcmXmlEntities(const std::string& text) : m_text(text) {}

    // Throws AcmLimitException when the document could now grow beyond MAX_XML_EXPANSION_BYTES, or when the
    // entity's text refers to another entity: nested ones grow exponentially.
    void Declare(const std::string& name, const std::string& text);

    // Throws AcmLimitException for a reference to an entity that was not declared. When declarations may be
    // in other files, which are not read, the parser drops such references silently, and the first save would
    // lose them. References in comments and CDATA sections count as well.
    void RequireDeclared();

    // Whether the text may refer to a parameter entity, which may declare further entities.
    bool HasParameterEntities() const;

private:
    void CountReferences();
    uint64_t ReferencesTo(const std::string& name) const;

    const std::string& m_text;
    std::unordered_map<std::string, uint64_t>
        m_references; // name -> how often; counted with the first entity
    std::unordered_set<std::string> m_declared;
    uint64_t m_ampersands = 0;
    uint64_t m_added = 0;
};

} // namespace SystemServer

#endif
