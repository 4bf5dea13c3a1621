#include "acm_xml_reader.h"

#include <algorithm>
#include <istream>
#include <iterator>

#include "Poco/DOM/DOMBuilder.h"
#include "Poco/Exception.h"
#include "Poco/SAX/InputSource.h"
#include "Poco/SAX/SAXParser.h"
#include "Poco/SAX/WhitespaceFilter.h"
#include "Poco/XML/NamePool.h"

#include "acm_xml_feed.h"
#include "acm_xml_guard.h"
#include "acm_xml_limits.h"

namespace SystemServer {

using Poco::XML::NamePool;
using Poco::XML::SAXParser;

namespace {

constexpr unsigned long POOL_SIZES[] = {61,   127,   251,   509,   1021,   2039,         4093,
                                        8191, 16381, 32749, 65521, 131071, MAX_XML_NAMES};

// Few documents use a name less than three times, or above this size more names than the library's
// default pool holds. One that does is read again with a larger pool.
constexpr size_t BYTES_PER_NAME = 32;
constexpr size_t MAX_FIRST_GUESS = 250;

struct Attempt {
    AcmXmlReading reading;
    bool prefixesClash = false;
};

Attempt Build(const std::string& text, const std::string& source, const AcmXmlReadOptions& options,
              unsigned long poolSize) {
    SAXParser parser;
    parser.setFeature(SAXParser::FEATURE_NAMESPACES, options.namespaces);
    parser.setFeature(SAXParser::FEATURE_NAMESPACE_PREFIXES, true);
    parser.setFeature(SAXParser::FEATURE_PARTIAL_READS, true);
    AcmXmlGuard guard(parser, text, options.allowDoctype);
    Poco::XML::WhitespaceFilter filter(&guard);
    Poco::AutoPtr<NamePool> pool(new NamePool(poolSize));
    Poco::XML::XMLReader& reader = options.dropBlankText ? static_cast<Poco::XML::XMLReader&>(filter) : guard;
    Poco::XML::DOMBuilder builder(reader, pool.get());

    AcmXmlFeed feed(text, guard);
    std::istream stream(&feed);
    Poco::XML::InputSource input(stream);
    input.setSystemId(source);
    Attempt attempt;
    try {
        attempt.reading.document = builder.parse(&input);
    } catch (...) {
        guard.RethrowFault();
        throw;
    }
    guard.RethrowFault();
    attempt.reading.document->suspendEvents();
    attempt.reading.declaresNamespaces = guard.DeclaresNamespaces();
    attempt.prefixesClash = guard.PrefixesClash();
    return attempt;
}

Attempt BuildWithRoom(const std::string& text, const std::string& source, const AcmXmlReadOptions& options) {
    unsigned long poolSize = XmlNamePoolSize(std::min(text.size() / BYTES_PER_NAME, MAX_FIRST_GUESS));
    for (;; poolSize = XmlNamePoolSize(poolSize)) {
        try {
            return Build(text, source, options, poolSize);
        } catch (const Poco::PoolOverflowException&) {
            if (poolSize == MAX_XML_NAMES)
                throw;
        }
    }
}

} // namespace

unsigned long XmlNamePoolSize(size_t names) {
    const auto* const size = std::upper_bound(std::begin(POOL_SIZES), std::end(POOL_SIZES), names);
    return size == std::end(POOL_SIZES) ? MAX_XML_NAMES : *size;
}

AcmXmlReading ReadXml(const std::string& text, const std::string& source, const AcmXmlReadOptions& options) {
    Attempt attempt = BuildWithRoom(text, source, options);
    if (attempt.prefixesClash) {
        AcmXmlReadOptions plain = options;
        plain.namespaces = false;
        attempt = BuildWithRoom(text, source, plain);
    }
    return attempt.reading;
}

} // namespace SystemServer
