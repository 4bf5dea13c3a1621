#include <chrono>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Poco/DOM/Node.h"
#include "Poco/Exception.h"
#include "Poco/XML/XMLException.h"

#include "pl/pl_log_control.h"
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

// One key, and what it addresses: the text of the node, or the way in which it addresses nothing.
struct KeyCase {
    const char* key;
    const char* found;
};

constexpr char NOTHING[] = "(nothing)";
constexpr char SYNTAX[] = "(syntax)";

const KeyCase KEYS[] = {
    {"", "1234innerdotted"},
    {"room", "1"},
    {"room.lamp", "1"},
    {".room", "1"},
    {"..room...lamp", "1"},
    {"room[0]", "1"},
    {"room[-1]", "1"},
    {"room[1]", "23"},
    {"room[2].lamp", "4"},
    {"room[1][1].lamp", "4"},
    {"room[1].lamp[1]", "3"},
    {"room[1]lamp", "2"},
    {"room[1", "23"},
    {"room[+1]", "23"},
    {"room[ 1]", "23"},
    {"room[0,1]", "23"},
    {"room[5]", NOTHING},
    {"room[1,000]", NOTHING},
    {"room[]", SYNTAX},
    {"room[", SYNTAX},
    {"room[x]", SYNTAX},
    {"room[1x]", SYNTAX},
    {"room[2147483648]", SYNTAX},
    {"absent[x]", NOTHING},
    {"room[@id=attic].lamp", "2"},
    {"room[@id='attic'].lamp[1]", "3"},
    {"room[@note='x y']", "23"},
    {"room[@note=x y]", "23"},
    {"room[@id='attic", "23"},
    {"room[@id=attic", "23"},
    {"room[@id='attic'xlamp", "2"},
    {"room[@id=]", "4"},
    {"room[@id='']", "4"},
    {"room[2].lamp[@id='x]y']", "4"},
    {"room[2].lamp[@id=x]y]", NOTHING},
    {"room[@id=cellar]", NOTHING},
    {"room[1][@id=hall]", NOTHING},
    {"room[@=x]", NOTHING},
    {"[@version]", "2"},
    {"[@version=2].room", "1"},
    {"room[@id]", "hall"},
    {"room[@id", "hall"},
    {"room[@id].lamp", "hall"},
    {"room[1][@id]", "attic"},
    {"room[@absent]", NOTHING},
    {"room[@]", NOTHING},
    {"house", "inner"},
    {"house[1]", NOTHING},
    {"room.", NOTHING},
    {".", NOTHING},
    {"Room", NOTHING},
    {"room lamp", NOTHING},
    {"room]", NOTHING},
    {"n1.5", NOTHING},
    {"room.absent.lamp", NOTHING},
    {"[1]", NOTHING},
    {"[0]", "1234innerdotted"},
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
    for (const KeyCase& row : KEYS) {
        const std::string inTree = Outcome([&]() -> std::string {
            const Node* node = document->FindNode(row.key);
            return node ? node->innerText() : NOTHING;
        });
        EXPECT_EQ(inTree, row.found) << "FindNode of \"" << row.key << '"';
        EXPECT_EQ(Outcome([&] { return document->getRawString(row.key); }), row.found)
            << "value of \"" << row.key << '"';
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
    std::string zeros = "room";
    for (int i = 0; i < 100000; ++i)
        zeros += "[0]";
    EXPECT_EQ(document->FindNode(zeros), document->FindNode("room"));
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

// Lines that the document logs, as "level text".
class AGraft : public testing::Test {
protected:
    AGraft() {
        pl_log_set_level(1);
        pl_log_set_sink(&AGraft::Keep, this);
    }
    ~AGraft() override { pl_log_set_sink(nullptr, nullptr); }

    static void Keep(void* context, int module, int level, const char* file, int, const char* text) {
        EXPECT_EQ(module, 4);
        EXPECT_STREQ(file, "system_server/app_cfg_mgmt_service/src/acm_xml_configuration");
        static_cast<AGraft*>(context)->m_lines.push_back(std::to_string(level) + " " + text);
    }

    std::vector<std::string> m_lines;
};

TEST_F(AGraft, ReplacesTheFirstChildOfItsNameAndKeepsTheOthers) {
    XmlPtr document = XmlOf("<r><a><b>old</b><b>kept</b></a></r>");
    EXPECT_EQ(document->SetRawString("a", "<b>1</b>"), 0);
    EXPECT_EQ(RawOf(document, "a"), "<a><b>1</b><b>kept</b></a>");
    EXPECT_THAT(m_lines, ElementsAre("1 find parent node.", "1 start parse rawString.", "1 parse done."));
}

TEST_F(AGraft, AppendsWhereNoChildHasItsName) {
    XmlPtr document = XmlOf("<r><a>t<c/></a></r>");
    EXPECT_EQ(document->SetRawString("a", "<b>1</b>"), 0);
    EXPECT_EQ(RawOf(document, "a"), "<a>t<c/><b>1</b></a>");
    EXPECT_THAT(m_lines, ElementsAre("1 find parent node.", "1 start parse rawString.", "1 parse done.",
                                     "1 append done."));
}

TEST_F(AGraft, OfAnUnknownParentSaysNothing) {
    XmlPtr document = XmlOf("<r><a/></r>");
    EXPECT_EQ(document->SetRawString("absent", "<b/>"), -1);
    EXPECT_EQ(document->SetRawString("a.", "<b/>"), -1);
    EXPECT_THAT(m_lines, ElementsAre());
}

TEST_F(AGraft, LandsUnderTheDocumentElementByItsNameOrTheEmptyKey) {
    XmlPtr document = XmlOf("<r><r/></r>");
    EXPECT_EQ(document->SetRawString("r", "<!--cut--><x>1</x><?cut off?>"), 0);
    EXPECT_EQ(document->SetRawString("", "<y>2</y>"), 0);
    EXPECT_EQ(document->SetRawString("r[0]", "<z>3</z>"), 0);
    EXPECT_EQ(RawOf(document, ""), "<r><r><z>3</z></r><x>1</x><y>2</y></r>");
}

TEST_F(AGraft, IsSeenByValuesAndIsSaved) {
    XmlPtr document = XmlOf("<r><a/></r>");
    document->SetRawString("a", "<b k='v'><c>1</c><c>2</c></b>");
    EXPECT_EQ(document->getString("a.b.c[1]"), "2");
    document->setString("a.b.c[1]", "two");
    EXPECT_EQ(Saved(document), "<r>\n\t<a>\n\t\t<b k=\"v\">\n\t\t\t<c>1</c>\n\t\t\t<c>two</c>\n\t\t</b>\n"
                               "\t</a>\n</r>\n");
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
    const std::string deepest = "a.d" + [] {
        std::string key;
        for (int i = 1; i < 100; ++i)
            key += ".d";
        return key;
    }();
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"a", ""},
        {"a", "text"},
        {"a", "<b>"},
        {"a", "<b></c>"},
        {"a", "<b/><c/>"},
        {"a", "<b/>junk"},
        {"a", " <?xml version='1.0'?><b/>"},
        {"a", "<b k='1' k='2'/>"},
        {"a", "<b>\x01</b>"},
        {"a", "<b>&#1;</b>"},
        {"a", "<b>\xC3</b>"},
        {"a", "<b>\xEF\xBF\xBE</b>"},
        {"a", "<b>&unknown;</b>"},
        {"a", "<p:b/>"},
        {"a", "<!DOCTYPE b><b/>"},
        {"a", "<!DOCTYPE b [<!ENTITY e 'x'>]><b>&e;</b>"},
        {"a", "<!DOCTYPE b SYSTEM 'file:///etc/passwd'><b/>"},
        {"a", Nested(2000)},
        {"a", Nested(300000)},
        {"a", Nested(255)},
        {deepest, Nested(155)},
        {"a[@k]", "<b/>"},
        {"a[x]", "<b/>"},
    };
    for (const auto& [key, raw] : refused) {
        EXPECT_THROW(document->SetRawString(key, raw), Poco::Exception) << key << ": " << raw.substr(0, 80);
        EXPECT_EQ(Saved(document), before) << key << ": " << raw.substr(0, 80);
    }
    EXPECT_EQ(document->SetRawString(deepest, Nested(154)), 0) << "the deepest that is allowed";
}

TEST_F(AGraft, ManyTimesOverKeepsMemoryLevel) {
    XmlPtr document = XmlOf("<r><a/></r>");
    const std::string big = "<b>" + std::string(50000, 'x') + Siblings(10000, "c", false) + "</b>";
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
        const std::string wide = "<w>" + Siblings(children, "c", false) + "</w>";
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
        ASSERT_EQ(document->SetRawString("a", "<b>" + Siblings(500, prefix, true) + "</b>"), 0) << round;
    }
    EXPECT_NE(document->FindNode("a.b.nt499"), nullptr);
    document->setString("a[@k]", "new");
    EXPECT_EQ(document->SetRawString("a", "<b>" + Siblings(10000, "m", true) + "</b>"), 0);
    EXPECT_NE(document->FindNode("a.b.m9999"), nullptr);
    document->SetRawString("a", "<b/>");
    EXPECT_EQ(Saved(document),
              "<!DOCTYPE r [\n\t<!NOTATION n SYSTEM \"viewer\">\n]>\n<!--top-->\n<?p q?>\n"
              "\n<r>\n\t<a k=\"new\">t<p:b p:k=\"w\" xmlns:p=\"u\"/>\n\t\t<b/>\n\t</a>\n</r>\n"
              "\n<!--end-->");
}

TEST_F(AGraft, OfMoreNamesThanAPoolMayHoldIsRefused) {
    XmlPtr document = XmlOf("<r>" + Siblings(200000, "n", true) + "<a/></r>");
    const std::string before = Saved(document);
    EXPECT_THROW(document->SetRawString("a", "<b>" + Siblings(100000, "m", true) + "</b>"),
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
    ASSERT_EQ(m_lines.size(), 2U);
    EXPECT_THAT(m_lines[0], StartsWith("3 XML"));

    struct Full : std::streambuf {
    } full;
    std::ostream stream(&full);
    document->setString("a", "fine");
    document->Save(stream);
    EXPECT_TRUE(stream.bad());
}

class AReload : public testing::Test {
protected:
    AReload() {
        char name[] = "/tmp/acm_xml_XXXXXX";
        m_path = mkdtemp(name) + std::string("/file.xml");
    }
    ~AReload() override {
        std::remove(m_path.c_str());
        std::remove(m_path.substr(0, m_path.rfind('/')).c_str());
    }
    void Write(const std::string& text) { std::ofstream(m_path) << text; }

    std::string m_path;
};

TEST_F(AReload, ShowsOneTreeToValuesRawTextAndSaving) {
    Write("<r>\n  <a>1</a>\n</r>");
    XmlPtr document(new AcmXmlConfiguration(m_path));
    EXPECT_EQ(RawOf(document, ""), "<r>\n  <a>1</a>\n</r>") << "the first reading keeps white space";

    Write("<r xmlns='u'>\n  <q:a>2</q:a>\n  <b> </b></r>");
    document->load(m_path);
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
    EXPECT_THROW(document->load(m_path), Poco::FileNotFoundException);
    EXPECT_THROW(document->load("/tmp"), Poco::FileException);
    for (const std::string& bad :
         {std::string(), std::string("<r>"), Nested(257), std::string("<r>\xFF</r>")}) {
        Write(bad);
        EXPECT_THROW(document->load(m_path), Poco::XML::XMLException) << bad.substr(0, 20);
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
