// XML documents by themselves: their limits, what is read and written, and grafts.
#include <chrono>
#include <sstream>
#include <string>

#include "Poco/AutoPtr.h"
#include "Poco/DOM/Node.h"
#include "Poco/Exception.h"

#include "acm_limit.h"
#include "acm_thread.h"
#include "acm_xml_configuration.h"
#include "acm_xml_limits.h"
#include "support/service_fixture.h"

using namespace SystemServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

using XmlPtr = Poco::AutoPtr<SystemServer::AcmXmlConfiguration>;

XmlPtr XmlOf(const std::string& text) {
    std::istringstream stream(text);
    return new SystemServer::AcmXmlConfiguration(stream);
}

std::string Saved(XmlPtr& document) {
    std::ostringstream out;
    document->Save(out);
    return out ? out.str() : "(bad stream)";
}

std::string RawOf(XmlPtr& document, const std::string& key) {
    std::string text;
    return document->GetRawString(key, text) == 0 ? text : "(nothing)";
}

std::string Repeated(size_t times, const std::string& text) {
    std::string all;
    for (size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

std::string Nested(size_t levels) {
    return Repeated(levels, "<d>") + Repeated(levels, "</d>");
}

// Empty elements whose names count up.
std::string Siblings(size_t count, const std::string& prefix) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += "<" + prefix + std::to_string(i) + "/>";
    }
    return text;
}

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
    } catch (const AcmLimitException& fault) {
        return fault.displayText();
    }
    return "loaded";
}

// An element whose tag takes so many bytes when it is written.
std::string TagOf(size_t bytes) {
    const std::string frame = "<t k=\"\"/>";
    return "<t k='" + std::string(bytes - frame.size() - 2, 'v') + "'/>";
}

TEST(ADeepDocument, IsRefusedBeyondTheLimitHoweverDeep) {
    for (const size_t levels : {size_t{2000}, size_t{300000}}) {
        EXPECT_THAT(Refusal(Nested(levels)), HasSubstr("nest too deep"));
    }
    EXPECT_THAT(Refusal("<r>" + Repeated(300, "<a/>") + "</r>"), "loaded") << "siblings are not depth";
}

TEST(ADeepDocument, AtTheLimitIsServedOnTheStackOfAThread) {
    std::string result;
    AcmThread thread([&] {
        XmlPtr document = XmlOf(Nested(MAX_XML_DEPTH - 1));
        document->SetRawString("", Nested(MAX_XML_DEPTH - 1));
        const std::string key = "d" + Repeated(MAX_XML_DEPTH - 3, ".d");
        document->SetRawString(key, "<d>bottom</d>");
        result = document->getString("d");
        XmlPtr again = XmlOf(Saved(document));
        result += " " + again->getString(key + ".d");
    });
    thread.join();
    EXPECT_EQ(result, "bottom bottom");
}

TEST(AnEntity, OfTheDocumentsOwnIsExpanded) {
    XmlPtr document = XmlOf("<!DOCTYPE r [<!ENTITY in 'a &amp; &#38;#60;'><!ENTITY out '<b>inner</b>'>"
                            "<!ATTLIST r k CDATA 'default'>]><r>&out;<c d='&in;'/></r>");
    EXPECT_EQ(RawOf(document, ""), "<r k=\"default\"><b>inner</b><c d=\"a &amp; &lt;\"/></r>");
    const std::string many = "<!DOCTYPE r [<!ENTITY e '" + std::string(40, 'x') + "'>" +
                             Repeated(300, "<!ENTITY f 'f'>") + "]><r>&e;";
    EXPECT_EQ(Refusal(many + Repeated(30000, "&amp;") + "</r>"), "loaded") << "only &e; refers to it";
    for (const std::string& text :
         {Bomb(100000, 0) + "]><r/>", "<!--" + std::string(MAX_XML_MARKUP_BYTES / 2, '[') + "--><r/>",
          "<!DOCTYPE r [" + Repeated(60000, "<!ELEMENT e (a)><?p '>[?>") + "]><r/>",
          Repeated(600000, "\n") + "<r k='[[['/>" + Repeated(600000, "\n")}) {
        EXPECT_EQ(Refusal(text), "loaded") << text.substr(0, 60);
    }
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
        "<!DOCTYPE r [<!ENTITY % z ' '><!ENTITY % a \"&#37;z;&#37;z;\">%a;]><r/>",
        "<!DOCTYPE r [<!ENTITY \xC3\xA9 '" + std::string(60000, 'x') + "'>]><r>" +
            Repeated(20000, "&\xC3\xA9;") + "</r>",
        Utf16("<!DOCTYPE r [<!ENTITY a '" + std::string(60000, 'x') + "'>]><r>" + Repeated(99, "&a;") +
                  "</r>",
              true),
        Utf16(Bomb(10, 10) + "]><r>&e9;</r>", false),
        Utf16(Bomb(10, 10) + "]><r>&e9;</r>", true),
        Bomb(2, 1) + "]><r>&e1;</r>",
        "<!DOCTYPE r [<!ATTLIST a k CDATA '" + std::string(100000, 'v') + "'>]><r>" + Repeated(5000, "<a/>") +
            "</r>",
    };
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& text : blowUps) {
        EXPECT_THAT(Refusal(text),
                    testing::AnyOf(HasSubstr("entities expand to too much"),
                                   HasSubstr("refers to another entity"), HasSubstr("too many declarations"),
                                   HasSubstr("adds too much")))
            << text.substr(0, 200);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

using AnExternalEntity = ServiceTest::ADirectory;

TEST_F(AnExternalEntity, IsNeverRead) {
    const std::string url = "\"file://" + Writes("secret", "<!ENTITY stolen 'SECRET'>SECRET") + "\"";
    EXPECT_THAT(Refusal("<!DOCTYPE r [<!ENTITY x SYSTEM " + url + ">]><r>&x;</r>"),
                HasSubstr("another file"));
    for (const std::string& doctype :
         {"<!DOCTYPE r SYSTEM " + url + ">", "<!DOCTYPE r [<!ENTITY % p SYSTEM " + url + "> %p;]>"}) {
        EXPECT_THAT(Refusal(doctype + "<r>&stolen;</r>"), HasSubstr("declared in another file: stolen"));
        XmlPtr document = XmlOf(doctype + "<r/>");
        EXPECT_THAT(Saved(document), Not(HasSubstr("SECRET")));
    }
}

// What the library's reader or writer would turn into something else is kept.
TEST(ADocument, IsReadBackAsItWasWritten) {
    for (const char* text : {"<r>a&#13;b&#xD;&#10;</r>", "<r k='&#13;&#10;&#9;'/>",
                             "<r><![CDATA[a]]]]><![CDATA[>b]]></r>", "<r xmlns='u'>\n\t<a>1</a>\n</r>",
                             "<r xmlns:p='u' p:k='1'>\n\t<p:a xmlns:ns1='u' ns1:k=''/>\n\t<q:b/>\n</r>",
                             "<r>\n\t<a>  </a>\n</r>", "<!DOCTYPE r SYSTEM \"a'b\"><r/>",
                             "<!DOCTYPE r PUBLIC 'p' 's' [<!NOTATION n PUBLIC 'q'>]><r/>"}) {
        XmlPtr document = XmlOf(text);
        XmlPtr again = XmlOf(Saved(document));
        EXPECT_EQ(RawOf(again, ""), RawOf(document, "")) << text;
        EXPECT_EQ(Saved(again), Saved(document)) << text;
        EXPECT_EQ(document->SetRawString("", RawOf(document, "")), 0) << text;
    }
}

// What is written takes no more than what was admitted, or is refused before.
TEST(ADocument, IsRefusedThatWouldNotLoadAgain) {
    const std::pair<std::string, const char*> texts[] = {
        {"<!DOCTYPE r SYSTEM 'x'><r a='x&foo;y'/>", "declared in another file: foo"},
        {"<!DOCTYPE r [<!ENTITY % p SYSTEM 'x'>%p;]><r a='x&foo;y'/>", "declared in another file: foo"},
        {"<r>" + Siblings(MAX_XML_NAMES + 1, "n") + "</r>", "too many names"},
        {"<?xml version='1.0' encoding='EUC-JP'?><r/>", "encoding that is not supported"},
        {"<?xml version='1.1'?><r>&#1;</r>", "1.1"},
    };
    for (const auto& [text, limit] : texts) {
        EXPECT_THAT(Refusal(text), HasSubstr(limit)) << text.substr(0, 60);
    }
    XmlPtr document = XmlOf("<r a='x'><v>" + std::string((16U << 20) - 35, 'v') + "</v><e/></r>");
    EXPECT_FALSE(document->Admits("e", "hello")) << "its end tag comes with it";
}

TEST(ATag, OfTheGreatestLengthIsServedAndNoLongerOne) {
    const std::string attributes = [] {
        std::string text;
        for (size_t i = 0; i < MAX_XML_ATTRIBUTES; ++i) {
            text += " a" + std::to_string(i) + "=''";
        }
        return text;
    }();
    const size_t most = MAX_XML_MARKUP_BYTES;
    const std::pair<std::string, bool> bodies[] = {
        {Nested(MAX_XML_DEPTH - 2), true},
        {Nested(MAX_XML_DEPTH), false},
        {"<b" + attributes + "/>", true},
        {"<b b=''" + attributes + "/>", false},
        {TagOf(most), true},
        {TagOf(most + 1), false},
        {"<!--" + std::string(most - 8, '-' + 1) + "-->", true},
        {"<!--" + std::string(most - 7, '-' + 1) + "-->", false},
        {"<b k='" + Repeated(most / 6, "&quot;") + "'/>", false},
        {"<b k='" + Repeated(most / 6, "&#x00000000061;") + "'/>", false},
        {"<b><![CDATA[" + std::string(2 * most, 'v') + "]]></b>", true},
        {"<b>" + std::string(2 * most, 'v') + "</b>", true},
    };
    for (const auto& [body, isTaken] : bodies) {
        const std::string text = "<r>" + body + "</r>";
        EXPECT_EQ(Refusal(text) == "loaded", isTaken) << text.substr(0, 60);
        XmlPtr document = XmlOf("<x/>");
        if (isTaken) {
            EXPECT_EQ(document->SetRawString("", "<r>" + body + "</r>"), 0) << text.substr(0, 60);
        } else {
            EXPECT_THROW(document->SetRawString("", text), AcmLimitException) << text.substr(0, 60);
        }
        EXPECT_EQ(Refusal(Saved(document)), "loaded") << text.substr(0, 60);
    }
}

TEST(ATag, GrowsByASetNoLongerThanCanBeLoaded) {
    XmlPtr document = XmlOf("<r><t k='' l=''/></r>");
    const std::string half(MAX_XML_MARKUP_BYTES / 2, 'v');
    EXPECT_TRUE(document->Admits("t[@k]", half));
    document->setString("t[@k]", half);
    EXPECT_FALSE(document->Admits("t[@l]", half));
    EXPECT_TRUE(document->Admits("t[@k]", half + half.substr(100))) << "in place of the first";
    EXPECT_FALSE(document->Admits("t[@l]", std::string(MAX_XML_MARKUP_BYTES / 8, '"'))) << "escaped";
    EXPECT_TRUE(document->Admits("t", half + half)) << "text is no tag";
}

TEST(AnEncoding, IsHonouredWherePartsOfCharactersLookLikeMarkup) {
    for (const bool bigEndian : {false, true}) {
        EXPECT_EQ(Refusal(Utf16("<!--[a[b[--><!DOCTYPE r [<!ENTITY e \"x\">]><r>&e;</r>", bigEndian)),
                  "loaded");
    }
    XmlPtr latin =
        XmlOf("<?xml version='1.0' encoding='ISO-8859-1'?><r>" + std::string(3000, '\xE9') + "</r>");
    EXPECT_EQ(latin->getString("").size(), 6000U);
}

using AGraft = ServiceTest::ADirectory;

TEST(AKey, OfThousandsOfStepsNeedsNoStack) {
    XmlPtr document = XmlOf("<r><room/></r>");
    EXPECT_EQ(document->FindNode("room" + Repeated(100000, "[0]")), document->FindNode("room"));
    EXPECT_EQ(document->FindNode(std::string(300000, '.') + "room"), document->FindNode("room"));
}

TEST_F(AGraft, OfManyChildrenTakesTimeInProportion) {
    const auto secondsFor = [](size_t children) {
        const auto start = std::chrono::steady_clock::now();
        XmlPtr document = XmlOf("<r/>");
        const std::string wide = "<w>" + Repeated(children, "<c/>") + "</w>";
        EXPECT_EQ(document->SetRawString("", wide), 0);
        EXPECT_EQ(document->SetRawString("", wide), 0);
        EXPECT_EQ(document->SetRawString("w", "<c>first</c>"), 0);
        EXPECT_EQ(document->SetRawString("w", "<last/>"), 0);
        EXPECT_THAT(RawOf(document, "w"), StartsWith("<w><c>first</c><c/>"));
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const double few = secondsFor(20000);
    EXPECT_LT(secondsFor(200000), few * 40) << "a hundred times as long is quadratic";
}

TEST_F(AGraft, FindsRoomForNamesThatTheDocumentDidNotHave) {
    XmlPtr document = XmlOf("<!DOCTYPE r [<!NOTATION n SYSTEM 'viewer'>]><!--top--><?p q?>"
                            "<r xmlns:p='u'><a k='v'>t<p:b p:k='w'/></a></r><!--end-->");
    for (int round = 0; round < 20; ++round) {
        const std::string prefix = "n" + std::string(1, static_cast<char>('a' + round));
        ASSERT_EQ(document->SetRawString("a", "<b>" + Siblings(500, prefix) + "</b>"), 0) << round;
    }
    EXPECT_NE(document->FindNode("a.b.nt499"), nullptr);
    document->setString("a[@k]", "new");
    EXPECT_EQ(document->SetRawString("a", "<b>" + Siblings(10000, "m") + "</b>"), 0);
    EXPECT_NE(document->FindNode("a.b.m9999"), nullptr);
    document->SetRawString("a", "<b/>");
    EXPECT_EQ(Saved(document),
              "<!DOCTYPE r [\n\t<!NOTATION n SYSTEM \"viewer\">\n]>\n<!--top-->\n<?p q?>\n"
              "\n<r xmlns:p=\"u\">\n\t<a k=\"new\">t<p:b p:k=\"w\"/>\n\t\t<b/>\n\t</a>\n</r>\n"
              "\n<!--end-->");
}

TEST_F(AGraft, SavedToAStreamThatFailsLeavesItBad) {
    XmlPtr document = XmlOf("<r><a>1</a></r>");
    document->setString("a", "cut\x01here"); // what a caller prevents with IsStorable
    std::ostringstream quiet;
    document->Save(quiet);
    EXPECT_TRUE(quiet.bad());
    std::ostringstream loud;
    loud.exceptions(std::ios::badbit);
    EXPECT_NO_THROW(document->Save(loud));
    EXPECT_TRUE(loud.bad());
    EXPECT_THAT(m_log.Errors(), ElementsAre(StartsWith("3 XML"), StartsWith("3 XML")));

    struct Full : std::streambuf {
    } full;
    std::ostream stream(&full);
    document->setString("a", "fine");
    document->Save(stream);
    EXPECT_TRUE(stream.bad());
}

TEST(AValue, IsStorableWhenAFileCanHoldIt) {
    for (const char* good :
         {"", "tab\tline\nreturn\r", "\x7F", "\xEF\xBF\xBD", "<&>\"'", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(AcmXmlConfiguration::IsStorable(good)) << testing::PrintToString(std::string(good));
    }
    for (const char* bad :
         {"\x01", "a\x1F", "\x0B", "\x80", "\xEF\xBF\xBE", "\xEF\xBF\xBF", "\xED\xBF\xBF"}) {
        EXPECT_FALSE(AcmXmlConfiguration::IsStorable(bad)) << testing::PrintToString(std::string(bad));
    }
    EXPECT_FALSE(AcmXmlConfiguration::IsStorable(std::string(1, '\0')));
}

} // namespace
