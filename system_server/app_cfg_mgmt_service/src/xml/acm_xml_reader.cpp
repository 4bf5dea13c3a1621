#include "acm_xml_reader.h"

#include <Poco/DOM/DOMBuilder.h>
#include <Poco/Exception.h>
#include <Poco/SAX/InputSource.h>
#include <Poco/SAX/SAXException.h>
#include <Poco/SAX/SAXParser.h>
#include <Poco/XML/NamePool.h>

#include <algorithm>
#include <istream>
#include <iterator>

#include "acm_limit.h"
#include "acm_xml_feed.h"
#include "acm_xml_guard.h"
#include "acm_xml_limits.h"

namespace SystemServer {

using Poco::AutoPtr;
using Poco::XML::Document;
using Poco::XML::NamePool;
using Poco::XML::SAXParser;

namespace {

constexpr unsigned long POOL_SIZES[] = {61, 127, 251, 509, 1021, 2039, 4093, 8191, 16381, MAX_XML_NAMES};

// The first guess at the size of the name pool: most documents use each name at least three times, and long
// ones have no more names than the library's default pool holds. Any other is read again with a larger pool.
constexpr size_t BYTES_PER_NAME = 32;
constexpr size_t MAX_FIRST_GUESS = 250;

// A document that needs what the parser lacks is not malformed: it must not be overwritten by a copy. Other
// files are never read.
void RefuseUnsupported(const std::string& fault, const std::string& text) {
    if (fault.find("external entity") != std::string::npos) {
        throw AcmLimitException("an entity that is declared in another file");
    }
    if (fault.find("nknown encoding") != std::string::npos) {
        throw AcmLimitException("an encoding that is not supported");
    }
    if (text.rfind("<?xml version=\"1.1\"", 0) == 0 || text.rfind("<?xml version='1.1'", 0) == 0) {
        throw AcmLimitException("XML 1.1 is not supported");
    }
}

AutoPtr<Document> Build(const std::string& text, AcmXmlDoctype doctype, unsigned long poolSize) {
    SAXParser parser;
    parser.setFeature(SAXParser::FEATURE_NAMESPACES, false);
    parser.setFeature(SAXParser::FEATURE_PARTIAL_READS, true);
    AcmXmlGuard guard(parser, text, doctype);
    AutoPtr<NamePool> pool(new NamePool(poolSize));
    Poco::XML::DOMBuilder builder(guard, pool.get());

    AcmXmlFeed feed(text, guard);
    std::istream stream(&feed);
    Poco::XML::InputSource input(stream);
    AutoPtr<Document> document;
    try {
        document = builder.parse(&input);
    } catch (const Poco::XML::SAXParseException& fault) {
        guard.RethrowFault();
        RefuseUnsupported(fault.message(), text);
        throw;
    }
    guard.RethrowFault();
    document->suspendEvents();
    return document;
}

} // namespace

unsigned long XmlNamePoolSize(size_t names) {
    const auto* const size = std::upper_bound(std::begin(POOL_SIZES), std::end(POOL_SIZES), names);
    return size == std::end(POOL_SIZES) ? MAX_XML_NAMES : *size;
}

AutoPtr<Document> ReadXml(const std::string& text, AcmXmlDoctype doctype) {
    unsigned long poolSize = XmlNamePoolSize(std::min(text.size() / BYTES_PER_NAME, MAX_FIRST_GUESS));
    for (;; poolSize = XmlNamePoolSize(poolSize)) {
        try {
            return Build(text, doctype, poolSize);
        } catch (const Poco::PoolOverflowException&) {
            if (poolSize == MAX_XML_NAMES) {
                throw AcmLimitException("too many names");
            }
        }
    }
}

} // namespace SystemServer
