#include "acm_xml_entities.h"

#include <algorithm>

#include "Poco/XML/XMLException.h"

#include "acm_xml_limits.h"

namespace SystemServer {

void AcmXmlEntities::Declare(const std::string& name, const std::string& text) {
    if (m_entities.size() >= MAX_XML_ENTITIES)
        throw Poco::XML::XMLException("too many entity declarations");
    // A name that is declared twice, or as a parameter entity too, counts for all of its texts.
    Entity& entity = m_entities[name];
    entity.length += text.size();
    for (size_t start = text.find('&'); start != std::string::npos; start = text.find('&', start + 1)) {
        const size_t end = text.find(';', start);
        if (end == std::string::npos)
            break;
        ++entity.references[text.substr(start + 1, end - start - 1)];
    }
    CheckAll();
}

void AcmXmlEntities::CheckAll() const {
    Measured measured;
    for (const auto& [name, entity] : m_entities) {
        const Extent extent = Measure(name, 1, measured);
        if (extent.length * m_ampersands > MAX_XML_EXPANSION_BYTES)
            throw Poco::XML::XMLException("entities expand to too much text", name);
    }
}

AcmXmlEntities::Extent AcmXmlEntities::Measure(const std::string& name, size_t level,
                                               Measured& measured) const {
    const auto known = measured.find(name);
    const size_t height = known == measured.end() ? 1 : known->second.height;
    if (level + height - 1 > MAX_XML_ENTITY_DEPTH)
        throw Poco::XML::XMLException("entities nest too deep", name);
    if (known != measured.end())
        return known->second;

    const Entity& entity = m_entities.at(name);
    Extent extent{entity.length, 1};
    for (const auto& [reference, count] : entity.references) {
        if (m_entities.count(reference) == 0)
            continue;
        const Extent part = Measure(reference, level + 1, measured);
        extent.length += part.length * count;
        extent.height = std::max(extent.height, part.height + 1);
        if (extent.length > MAX_XML_EXPANSION_BYTES)
            throw Poco::XML::XMLException("entities expand to too much text", name);
    }
    measured.emplace(name, extent);
    return extent;
}

} // namespace SystemServer
