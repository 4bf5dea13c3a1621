#include <chrono>
#include <malloc.h>
#include <string>
#include <vector>

#include "Poco/DOM/Node.h"
#include "Poco/Exception.h"
#include "Poco/XML/XMLException.h"

#include "service_fixture.h"
#include "xml_document.h"

using Poco::XML::Node;
using SystemServer::AcmXmlConfiguration;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

constexpr char HOUSE[] = "<house version='2'>"
                         "<room id='hall'><lamp>1</lamp></room>"
                         "<!--between--><other/>"
                         "<room id='attic' note='x y'><lamp>2</lamp><lamp>3</lamp></room>"
                         "<room><lamp id='x]y'>4</lamp></room>"
                         "<house>inner</house>"
                         "<n1.5>dotted</n1.5>"
                         "</house>";

constexpr char NOTHING[] = "(nothing)";
constexpr char SYNTAX[] = "(syntax)";

// The text of the node that the keys address, or the way in which they address nothing, and the keys.
const std::pair<const char*, std::vector<const char*>> KEYS[] = {
    {"1234innerdotted", {"", "[0]"}},
    {"1", {"room", "room.lamp", ".room", "..room...lamp", "room[0]", "room[-1]", "[@version=2].room"}},
    {"23",
     {"room[1]", "room[1", "room[+1]", "room[ 1]", "room[0,1]", "room[@note='x y']", "room[@note=x y]",
      "room[@id='attic", "room[@id=attic"}},
    {"4", {"room[2].lamp", "room[1][1].lamp", "room[@id=]", "room[@id='']", "room[2].lamp[@id='x]y']"}},
    {"3", {"room[1].lamp[1]", "room[@id='attic'].lamp[1]"}},
    {"2", {"room[1]lamp", "room[@id=attic].lamp", "room[@id='attic'xlamp", "[@version]"}},
    {"hall", {"room[@id]", "room[@id", "room[@id].lamp"}},
    {"attic", {"room[1][@id]"}},
    {"inner", {"house"}},
    {SYNTAX, {"room[]", "room[", "room[x]", "room[1x]", "room[2147483648]"}},
    {NOTHING,
     {"room[5]", "room[1,000]", "absent[x]", "room[2].lamp[@id=x]y]", "room[@id=cellar]", "room[1][@id=hall]",
      "room[@=x]", "room[@absent]", "room[@]", "house[1]", "room.", ".", "Room", "room lamp", "room]", "n1.5",
      "room.absent.lamp", "[1]"}},
};

template <typename Find>
std::string Outcome(Find find) {
    try {
        return find();
    } catch (const Poco::SyntaxException&) {
        return SYNTAX;
    } catch (const Poco::NotFoundException&) {
        return NOTHING;
    }
}

TEST(AKey, AddressesTheSameNodeInTheTreeAndInTheValues) {
    XmlPtr document = XmlOf(HOUSE);
    for (const auto& [found, keys] : KEYS) {
        for (const char* key : keys) {
            const std::string inTree = Outcome([&, key = key]() -> std::string {
                const Node* node = document->FindNode(key);
                return node ? node->innerText() : NOTHING;
            });
            EXPECT_EQ(inTree, found) << "FindNode of \"" << key << '"';
            EXPECT_EQ(Outcome([&, key = key] { return document->getRawString(key); }), found)
                << "value of \"" << key << '"';
        }
    }
}

TEST(AKey, IsWalkedFromAnyNodeAndLeavesItsPositionBehindTheLastStep) {
    XmlPtr document = XmlOf(HOUSE);
    const std::string key = "lamp[1].absent.rest";
    std::string::const_iterator position = key.begin();
    Node* const attic = document->FindNode("room[1]");
    EXPECT_EQ(document->FindNode(position, key.end(), attic), nullptr);
    EXPECT_EQ(std::string(position, key.end()), ".rest");
    EXPECT_EQ(document->FindNode(position, key.end(), nullptr), nullptr);
    EXPECT_EQ(std::string(position, key.end()), ".rest");
}

TEST(AKey, OfThousandsOfStepsNeedsNoStack) {
    XmlPtr document = XmlOf(HOUSE);
    EXPECT_EQ(document->FindNode("room" + Repeated(100000, "[0]")), document->FindNode("room"));
    EXPECT_EQ(document->FindNode(std::string(300000, '.') + "room"), document->FindNode("room"));
}

TEST(ARawText, IsTheNodeWithItsTags) {
    XmlPtr document = XmlOf("<a v='1'><a>in</a><b>x<!--c--><![CDATA[<y>]]><?p q?>&amp;</b></a>");
    const std::string whole = "<a v=\"1\"><a>in</a><b>x<!--c--><![CDATA[<y>]]><?p q?>&amp;</b></a>";
    EXPECT_EQ(RawOf(document, ""), whole);
    EXPECT_EQ(RawOf(document, "a"), whole) << "the document element's name is itself";
    EXPECT_EQ(RawOf(document, "a.x"), "(nothing)");
    EXPECT_EQ(RawOf(document, "a[0]"), "<a>in</a>");
    EXPECT_EQ(RawOf(document, "b"), "<b>x<!--c--><![CDATA[<y>]]><?p q?>&amp;</b>");
    EXPECT_EQ(RawOf(document, "[@v]"), "") << "an attribute has no text of its own";
    EXPECT_EQ(RawOf(document, "b."), "(nothing)");
    std::string untouched = "before";
    EXPECT_EQ(document->GetRawString("absent", untouched), -1);
    EXPECT_EQ(untouched, "before");
}

class AGraft : public ServiceTest::ADirectory {
protected:
    ~AGraft() override { EXPECT_THAT(m_log.Strays(), ElementsAre()); }
};

TEST_F(AGraft, ReplacesTheFirstChildOfItsNameOrIsAppended) {
    XmlPtr document = XmlOf("<r><a>t<b>old</b><b>kept</b></a></r>");
    EXPECT_EQ(document->SetRawString("a", "<b>1</b>"), 0);
    EXPECT_THAT(m_log.Of(), ElementsAre("1 find parent node.", "1 start parse rawString.", "1 parse done."));
    m_log.Clear();
    EXPECT_EQ(document->SetRawString("a", "<c>2</c>"), 0);
    EXPECT_THAT(m_log.Of(), ElementsAre("1 find parent node.", "1 start parse rawString.", "1 parse done.",
                                        "1 append done."));
    EXPECT_EQ(RawOf(document, "a"), "<a>t<b>1</b><b>kept</b><c>2</c></a>");
}

TEST_F(AGraft, OfAnUnknownParentSaysNothing) {
    XmlPtr document = XmlOf("<r><a/></r>");
    EXPECT_EQ(document->SetRawString("absent", "<b/>"), -1);
    EXPECT_EQ(document->SetRawString("a.", "<b/>"), -1);
    EXPECT_THAT(m_log.Of(), ElementsAre());
}

TEST_F(AGraft, LandsUnderTheDocumentElementByItsNameOrTheEmptyKey) {
    XmlPtr document = XmlOf("<r><r/></r>");
    EXPECT_EQ(document->SetRawString("r", "<!--cut--><x>1</x><?cut off?>"), 0);
    EXPECT_EQ(document->SetRawString("", "<y>2</y>"), 0);
    EXPECT_EQ(document->SetRawString("r[0]", "<z>3</z>"), 0);
    EXPECT_EQ(RawOf(document, ""), "<r><r><z>3</z></r><x>1</x><y>2</y></r>");
}

TEST_F(AGraft, CopiesEveryKindOfNode) {
    const std::string rich = "<p:b p:k=\"1\" xmlns:p=\"urn:p\" z=\"&lt;&amp;\"><p:c/>t<![CDATA[<&]]>"
                             "<!--c--><?do it?><d e=\"&#xA;\">\xC3\xA9&amp;</d></p:b>";
    XmlPtr document = XmlOf("<r><a/></r>");
    EXPECT_EQ(document->SetRawString("a", rich), 0);
    EXPECT_EQ(RawOf(document, "a"), "<a>" + rich + "</a>");
    XmlPtr again = XmlOf(Saved(document));
    EXPECT_EQ(again->getString("a.p:b.d"), "\xC3\xA9&");
}

TEST_F(AGraft, ThatIsRefusedLeavesTheDocumentAsItWas) {
    XmlPtr document = XmlOf("<r><a k='v'>" + Nested(100) + "<b>1</b></a></r>");
    const std::string before = Saved(document);
    const std::string deepest = "a" + Repeated(100, ".d");
    const std::pair<std::string, std::vector<std::string>> refused[] = {
        {"a",
         {"", "text", "<b>", "<b></c>", "<b/><c/>", "<b/>junk", "<p:b/>", "<b>\x01</b>", "<b>\xC3</b>",
          "<b>&#1;</b>", "<b>\xEF\xBF\xBE</b>", "<b>&unknown;</b>", "<b k='1' k='2'/>"}},
        {"a",
         {" <?xml version='1.0'?><b/>", "<!DOCTYPE b><b/>", "<!DOCTYPE b [<!ENTITY e 'x'>]><b>&e;</b>",
          "<!DOCTYPE b SYSTEM 'file:///etc/passwd'><b/>"}},
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
              "\n<r>\n\t<a k=\"new\">t<p:b p:k=\"w\" xmlns:p=\"u\"/>\n\t\t<b/>\n\t</a>\n</r>\n"
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

// Two prefixes of one namespace: the library's writer ends this element with the other one.
constexpr char TWISTED[] = "<p:b xmlns:ns1=\"u\" xmlns:p=\"u\" ns1:k=\"1\">2</p:b>";

TEST_F(AGraft, OfPrefixesIsReadBackAsItWas) {
    for (const char* text : {"<r><a><c/><p:b>old</p:b></a></r>", "<r xmlns='u'><a/></r>",
                             "<r xmlns:p='v'><a xmlns='u' xmlns:ns1='v' ns1:k=''/></r>"}) {
        XmlPtr document = XmlOf("<r/>");
        std::istringstream stream(text);
        document->load(stream);
        ASSERT_EQ(document->SetRawString("a", TWISTED), 0);
        ASSERT_EQ(document->SetRawString("a", "<e xmlns='u'><f xmlns:q='u' q:k='3'>4</f></e>"), 0);
        std::istringstream saved(Saved(document));
        document->load(saved);
        EXPECT_EQ(document->getString("a.p:b") + document->getString("a.p:b[@ns1:k]"), "21");
        EXPECT_EQ(document->getString("a.e.f") + document->getString("a.e.f[@q:k]"), "43");
    }
}

TEST(ADocument, KeepsPrefixesThatTheWriterMixesUp) {
    XmlPtr document = XmlOf("<r>" + std::string(TWISTED) + "</r>");
    document->setString("p:b", "3");
    XmlPtr again = XmlOf(Saved(document));
    EXPECT_EQ(again->getString("p:b") + again->getString("p:b[@ns1:k]"), "31");
    XmlPtr usual = XmlOf("<r xmlns='u'><a>1</a></r>");
    EXPECT_EQ(RawOf(usual, "r"), "<ns1:r xmlns:ns1=\"u\"><ns1:a>1</ns1:a></ns1:r>");
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

TEST_F(AReload, ShowsOneTreeToValuesRawTextAndSaving) {
    const std::string file = Writes("f", "<r>\n  <a>1</a>\n</r>");
    XmlPtr document(new AcmXmlConfiguration(file));
    EXPECT_EQ(RawOf(document, ""), "<r>\n  <a>1</a>\n</r>") << "the first reading keeps white space";

    Writes("f", "<r xmlns='u'>\n  <q:a>2</q:a>\n  <b> </b></r>");
    document->load(file);
    EXPECT_EQ(document->getString("q:a"), "2") << "a reload takes prefixes for plain text";
    EXPECT_EQ(RawOf(document, ""), "<r xmlns=\"u\"><q:a>2</q:a><b/></r>");
    EXPECT_EQ(document->SetRawString("b", "<c>3</c>"), 0);
    document->setString("q:a", "4");
    EXPECT_EQ(document->getString("b.c"), "3");
    EXPECT_EQ(Saved(document), "<r xmlns=\"u\">\n\t<q:a>4</q:a>\n\t<b>\n\t\t<c>3</c>\n\t</b>\n</r>\n");

    std::istringstream stream("<s><a>5</a></s>");
    document->load(stream);
    EXPECT_EQ(document->getString("a") + RawOf(document, "s"), "5<s><a>5</a></s>");
}

TEST_F(AReload, ReadsAsTheBaseDoes) {
    const std::string text = "<!DOCTYPE r [<!ENTITY e 'v'>]><r xmlns:p='u'>\n <a p:x='1'> t &e; </a>\n"
                             " <b>\n<!--c--> <![CDATA[ ]]></b><p:c/></r>";
    XmlPtr document = XmlOf("<old/>");
    std::istringstream ours(text);
    document->load(ours);
    std::istringstream theirs(text);
    Poco::AutoPtr<Poco::Util::XMLConfiguration> base(new Poco::Util::XMLConfiguration(theirs));
    std::ostringstream expected;
    base->save(expected);
    EXPECT_EQ(Saved(document), expected.str());
}

TEST_F(AReload, ThatFailsLeavesTheOldTree) {
    XmlPtr document = XmlOf("<r><a>1</a></r>");
    const std::string before = Saved(document);
    EXPECT_THROW(document->load(Path("f")), Poco::FileNotFoundException);
    EXPECT_THROW(document->load("/tmp"), Poco::FileException);
    for (const std::string& bad :
         {std::string(), std::string("<r>"), Nested(257), std::string("<r>\xFF</r>")}) {
        EXPECT_THROW(document->load(Writes("f", bad)), Poco::XML::XMLException) << bad.substr(0, 20);
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
