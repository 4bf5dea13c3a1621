// The internal entities that a DOCTYPE declares, and what their references can grow to.
#ifndef ACM_XML_ENTITIES_H
#define ACM_XML_ENTITIES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace SystemServer {

// Bounds the expansion of entities from their declarations, before the parser meets a reference to one.
// Owned by the guard of one parse; no locks.
class AcmXmlEntities {
public:
    // The number of "&" in the document's text: no more references than that can be expanded.
    explicit AcmXmlEntities(uint64_t ampersands) : m_ampersands(ampersands) {}

    // Throws Poco::XML::XMLException when the document could now grow beyond the limits.
    void Declare(const std::string& name, const std::string& text);

private:
    struct Entity {
        uint64_t length = 0;
        std::map<std::string, uint64_t> references; // name -> how often
    };
    struct Extent {
        uint64_t length = 0;
        size_t height = 0;
    };
    using Measured = std::map<std::string, Extent>;

    void CheckAll() const;
    Extent Measure(const std::string& name, size_t level, Measured& measured) const;

    uint64_t m_ampersands;
    std::map<std::string, Entity> m_entities;
};

} // namespace SystemServer

#endif
