#include <chrono>
#include <malloc.h>
#include <string>
#include <vector>

#include "Poco/DOM/Node.h"
#include "Poco/Exception.h"
#include "Poco/XML/XMLException.h"

#include "support/service_fixture.h"
#include "xml_document.h"

using Poco::XML::Node;
using SystemServer::AcmXmlConfiguration;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

using AGraft = ServiceTest::ADirectory;

TEST(AKey, OfThousandsOfStepsNeedsNoStack) {
    XmlPtr document = XmlOf("<r><room/></r>");
    EXPECT_EQ(document->FindNode("room" + Repeated(100000, "[0]")), document->FindNode("room"));
    EXPECT_EQ(document->FindNode(std::string(300000, '.') + "room"), document->FindNode("room"));
}

TEST_F(AGraft, ThatIsRefusedLeavesTheDocumentAsItWas) {
    XmlPtr document = XmlOf("<r><a k='v'>" + Nested(100) + "<b>1</b></a></r>");
    const std::string before = Saved(document);
    const std::string deepest = "a" + Repeated(100, ".d");
    const std::pair<std::string, std::vector<std::string>> refused[] = {
        {"a",
         {"", "<b></c>", "<b>\x01</b>", "<b>\xC3</b>", "<b>&#1;</b>", "<b>\xEF\xBF\xBE</b>",
          " <?xml version='1.0'?><b/>", "<!DOCTYPE b><b/>", "<!DOCTYPE b SYSTEM 'file:///etc/passwd'><b/>"}},
        {"a", {Nested(2000), Nested(300000), Nested(255)}},
        {deepest, {Nested(155)}},
        {"a[@k]", {"<b/>"}},
        {"a[x]", {"<b/>"}},
    };
    for (const auto& [key, texts] : refused) {
        for (const std::string& raw : texts) {
            EXPECT_THROW(document->SetRawString(key, raw), Poco::Exception)
                << key << ": " << raw.substr(0, 80);
            EXPECT_EQ(Saved(document), before) << key << ": " << raw.substr(0, 80);
        }
    }
    EXPECT_EQ(document->SetRawString(deepest, Nested(154)), 0) << "the deepest that is allowed";
}

TEST_F(AGraft, ManyTimesOverKeepsMemoryLevel) {
    XmlPtr document = XmlOf("<r><a/></r>");
    const std::string big = "<b>" + std::string(50000, 'x') + Repeated(10000, "<c/>") + "</b>";
    const auto used = [] { return static_cast<double>(mallinfo2().uordblks); };
    document->SetRawString("a", big);
    const double once = used();
    for (int i = 0; i < 30; ++i)
        document->SetRawString("a", big);
    EXPECT_LT(used(), once * 1.1 + 1e5);
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

TEST_F(AGraft, OfMoreNamesThanAPoolMayHoldIsRefused) {
    XmlPtr document = XmlOf("<r>" + Siblings(200000, "n") + "<a/></r>");
    const std::string before = Saved(document);
    EXPECT_THROW(document->SetRawString("a", "<b>" + Siblings(100000, "m") + "</b>"),
                 Poco::PoolOverflowException);
    EXPECT_EQ(Saved(document), before);
    EXPECT_EQ(document->SetRawString("a", "<b/>"), 0);
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

using AReload = ServiceTest::ADirectory;

TEST_F(AReload, ThatFailsLeavesTheOldTree) {
    XmlPtr document = XmlOf("<r><a>1</a></r>");
    const std::string before = Saved(document);
    EXPECT_THROW(document->load(Path("f")), Poco::FileNotFoundException);
    EXPECT_THROW(document->load("/tmp"), Poco::FileException);
    for (const std::string& bad :
         {std::string(), std::string("<r>"), Nested(257), std::string("<r>\xFF</r>")}) {
        EXPECT_THROW(document->load(Writes("f", bad)), Poco::Exception) << bad.substr(0, 20);
    }
    struct Broken : std::streambuf {
        int_type underflow() override { throw Poco::IOException("bad decrypt"); }
    } broken;
    std::istream stream(&broken);
    EXPECT_THROW(document->load(stream), Poco::IOException);
    EXPECT_EQ(Saved(document), before);
    EXPECT_EQ(document->getString("a"), "1");
}

TEST(AValue, IsStorableWhenAFileCanHoldIt) {
    for (const char* good : {"", "plain", "tab\tline\nreturn\r", "\x7F", "\xC2\x80", "\xEF\xBF\xBD", "<&>\"'",
                             "\xED\x9F\xBF", "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(AcmXmlConfiguration::IsStorable(good)) << testing::PrintToString(std::string(good));
    for (const char* bad : {"\x01", "a\x1F", "\x0B", "\x80", "\xC3", "a\xC3(", "\xC0\x80", "\xE2\x82",
                            "\xED\xA0\x80", "\xED\xBF\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF",
                            "\xF4\x90\x80\x80", "\xF0\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF"})
        EXPECT_FALSE(AcmXmlConfiguration::IsStorable(bad)) << testing::PrintToString(std::string(bad));
    EXPECT_FALSE(AcmXmlConfiguration::IsStorable(std::string(1, '\0')));
}

} // namespace
