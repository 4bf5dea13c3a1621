#include <pthread.h>

#include <chrono>
#include <string>

#include "Poco/DOM/Node.h"
#include "Poco/Exception.h"
#include "Poco/XML/XMLException.h"

#include "acm_xml_limits.h"
#include "service_fixture.h"
#include "xml_document.h"

using namespace SystemServer;
using Poco::XML::XMLException;
using testing::HasSubstr;
using testing::Not;

namespace {

// Entities e1 to eN, each naming the one before it so many times.
std::string Bomb(size_t entities, size_t fanOut, const std::string& seed = "lol") {
    std::string text = "<!DOCTYPE r [<!ENTITY e0 \"" + seed + "\">";
    for (size_t i = 1; i < entities; ++i) {
        const std::string uses = Repeated(fanOut, "&e" + std::to_string(i - 1) + ";");
        text += "<!ENTITY e" + std::to_string(i) + " \"" + uses + "\">";
    }
    return text;
}

std::string Utf16(const std::string& text, bool bigEndian) {
    std::string wide = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : text) {
        wide += bigEndian ? '\0' : c;
        wide += bigEndian ? c : '\0';
    }
    return wide;
}

// The fault that refuses the text, or "loaded".
std::string Refusal(const std::string& text) {
    try {
        XmlOf(text);
    } catch (const XMLException& fault) {
        return fault.displayText();
    }
    return "loaded";
}

TEST(ADeepDocument, IsRefusedBeyondTheLimitHoweverDeep) {
    EXPECT_EQ(Refusal(Nested(MAX_XML_DEPTH)), "loaded");
    for (const size_t levels : {MAX_XML_DEPTH + 1, size_t{2000}, size_t{300000}})
        EXPECT_THAT(Refusal(Nested(levels)), HasSubstr("nest too deep"));
    EXPECT_THAT(Refusal("<r>" + Repeated(300, "<a/>") + "</r>"), "loaded") << "siblings are not depth";
}

void* UseDeepDocument(void* result) {
    XmlPtr document = XmlOf(Nested(MAX_XML_DEPTH - 1));
    document->SetRawString("", Nested(MAX_XML_DEPTH - 1));
    const std::string key = "d" + Repeated(MAX_XML_DEPTH - 3, ".d");
    document->SetRawString(key, "<d>bottom</d>");
    *static_cast<std::string*>(result) = document->getString("d");
    XmlPtr again = XmlOf(Saved(document));
    *static_cast<std::string*>(result) += " " + again->getString(key + ".d");
    return nullptr;
}

TEST(ADeepDocument, AtTheLimitIsServedOnASmallStack) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 << 10), 0);
    pthread_t thread;
    std::string result;
    ASSERT_EQ(pthread_create(&thread, &attributes, &UseDeepDocument, &result), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(result, "bottom bottom");
}

TEST(AnEntity, OfTheDocumentsOwnIsExpanded) {
    XmlPtr document =
        XmlOf("<!DOCTYPE r [<!ENTITY in 'inner'><!ENTITY out '<b>&in;</b>'><!ENTITY later '&in;'>"
              "<!ATTLIST r k CDATA 'default'>]><r>&out;<c d='&later;'/></r>");
    EXPECT_EQ(RawOf(document, ""), "<r k=\"default\"><b>inner</b><c d=\"inner\"/></r>");
    EXPECT_EQ(Refusal(Bomb(3, 10) + "]><r>&e2;&e2;</r>"), "loaded");
}

TEST(AnEntity, ThatBlowsUpIsRefusedFast) {
    const std::string blowUps[] = {
        Bomb(10, 10) + "]><r>&e9;</r>",
        Bomb(10, 10) + "]><r a='&e9;'/>",
        Bomb(10, 10) + "<!ATTLIST r a CDATA '&e9;'>]><r/>",
        Bomb(10, 10) + "<!--\">--> ] \n ><r>&e9;</r>",
        Bomb(16, 2, "<x/><x/><x/><x/><x/><x/>") + "]><r>&e15;</r>",
        Bomb(1, 1, std::string(60000, 'x')) + "]><r>" + Repeated(20000, "&e0;") + "</r>",
        "<!DOCTYPE r [<!ENTITY z \"&#38;a;&#38;a;\"><!ENTITY a \"&z;&z;\">]><r>&a;</r>",
        Utf16(Bomb(10, 10) + "]><r>&e9;</r>", false),
        Utf16(Bomb(10, 10) + "]><r>&e9;</r>", true),
        Bomb(20, 1) + "]><r>&e19;</r>",
        Bomb(200, 1) + "<!ATTLIST r a CDATA '&e199;'>]><r/>",
        Bomb(100000, 0) + "]><r/>",
        "<!DOCTYPE r [<!ATTLIST a k CDATA '" + std::string(100000, 'v') + "'>]><r>" + Repeated(5000, "<a/>") +
            "</r>",
    };
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& text : blowUps)
        EXPECT_THAT(Refusal(text), testing::AnyOf(HasSubstr("entities expand to too much"),
                                                  HasSubstr("entities nest too deep"),
                                                  HasSubstr("too many entity"), HasSubstr("adds too much")))
            << text.substr(0, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

using AnExternalEntity = ServiceTest::ADirectory;

TEST_F(AnExternalEntity, IsNeverRead) {
    const std::string url = "\"file://" + Writes("secret", "<!ENTITY stolen 'SECRET'>SECRET") + "\"";
    EXPECT_THAT(Refusal("<!DOCTYPE r [<!ENTITY x SYSTEM " + url + ">]><r>&x;</r>"), Not("loaded"));
    for (const std::string& text : {"<!DOCTYPE r SYSTEM " + url + "><r>&stolen;</r>",
                                    "<!DOCTYPE r [<!ENTITY % p SYSTEM " + url + "> %p;]><r>&stolen;</r>"}) {
        XmlPtr document = XmlOf(text);
        EXPECT_EQ(RawOf(document, ""), "<r/>") << text;
        EXPECT_THAT(Saved(document), Not(HasSubstr("SECRET")));
    }
}

TEST(ADoctype, ThatCouldNotBeReadBackIsRefused) {
    EXPECT_EQ(Refusal("<!DOCTYPE r SYSTEM \"a'b\"><r/>"), "loaded");
    for (const char* text :
         {"<!DOCTYPE r SYSTEM 'a\"b'><r/>", "<!DOCTYPE r [<!NOTATION n SYSTEM 'a\"b'>]><r/>",
          "<!DOCTYPE r [<!NOTATION n SYSTEM 'v'><!ENTITY u SYSTEM 'a\"b' NDATA n>]><r/>"})
        EXPECT_THAT(Refusal(text), HasSubstr("cannot be written back")) << text;
}

TEST(ManyNames, LoadAndAreWrittenAndReadBack) {
    XmlPtr document = XmlOf("<r>" + Siblings(10000, "name") + "</r>");
    document->setString("name9999", "last");
    XmlPtr again = XmlOf(Saved(document));
    EXPECT_EQ(again->getString("name9999"), "last");
    std::istringstream stream(Saved(document));
    again->load(stream);
    EXPECT_EQ(again->getString("name9999"), "last");
    EXPECT_THROW(XmlOf("<r>" + Siblings(MAX_XML_NAMES + 1, "n") + "</r>"), Poco::PoolOverflowException);
}

TEST(ALongTag, IsReadUntilItCostsTooMuch) {
    const auto withAttribute = [](size_t bytes) { return "<r a='" + std::string(bytes, 'v') + "'/>"; };
    EXPECT_EQ(Refusal(withAttribute(1 << 20)), "loaded");
    EXPECT_THAT(Refusal(withAttribute(6 << 20)), HasSubstr("too long"));
    EXPECT_THAT(Refusal("<!--" + std::string(1 << 20, '[') + "--><r/>"), HasSubstr("too long"));
    EXPECT_EQ(Refusal("<r>" + std::string(6 << 20, 'v') + "</r>"), "loaded") << "text is no tag";

    std::string attributes;
    for (size_t i = 0; i < MAX_XML_ATTRIBUTES; ++i)
        attributes += " a" + std::to_string(i) + "=''";
    EXPECT_EQ(Refusal("<r" + attributes + "/>"), "loaded");
    EXPECT_THAT(Refusal("<r b=''" + attributes + "/>"), HasSubstr("too many attributes"));
}

TEST(AnEncoding, IsHonouredWherePartsOfCharactersLookLikeMarkup) {
    for (const bool bigEndian : {false, true})
        EXPECT_EQ(Refusal(Utf16("<!--[a[b[--><!DOCTYPE r [<!ENTITY e \"x\">]><r>&e;</r>", bigEndian)),
                  "loaded");
    XmlPtr latin =
        XmlOf("<?xml version='1.0' encoding='ISO-8859-1'?><r>" + std::string(3000, '\xE9') + "</r>");
    EXPECT_EQ(latin->getString("").size(), 6000U);
}

} // namespace
