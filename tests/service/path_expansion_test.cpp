#include "support/scripted_peer.h"
#include "support/service_calls.h"
#include "support/service_fixture.h"
#include "tern/tern.h"

namespace ServiceTest {

// An answer whose content section says that its first piece has this length.
std::string Answer(uint32_t firstLength, const std::string& payload) {
    std::string frame = Frame(0x80 | 2, payload, 0, 2);
    std::memcpy(&frame[20], &firstLength, sizeof firstLength);
    return frame;
}

class AnExpansion : public AService {
protected:
    std::string Expands(const std::string& path) { return AppCfgMgmtServer::ExpandPath(path, &m_info); }
    // The one question that was asked: method, URI and content.
    static std::string Asked(const ScriptedPeer& manager) {
        const Reply question = manager.Requests().at(0);
        return std::to_string(question.header.method) + " " + std::to_string(question.header.uri) + " " +
               question.payload;
    }
    std::string AppManagerSocket() const { return Path("appmgr.paas.orb"); }

    AppCfgMgmtServer::ConnectionInfo m_info{4242};
};

struct Expansion {
    const char* path;
    const char* expanded;
};

TEST_F(AnExpansion, ReplacesKnownPlaceholdersAlone) {
    const Expansion cases[] = {
        {"${default_setting_path}a.json", "/usr/setting/a.json"},
        {"${default_backup_path}a.json", "/usr/setting_bak/a.json"},
        {"/x/${default_setting_path}${default_backup_path}", "/x//usr/setting//usr/setting_bak/"},
        {"$${default_setting_path}", "$/usr/setting/"},
        {"${${default_setting_path}}", "${${default_setting_path}}"},
        {"}${unknown}${default_setting_path}", "}${unknown}/usr/setting/"},
    };
    for (const Expansion& entry : cases) {
        EXPECT_EQ(Expands(entry.path), entry.expanded) << entry.path;
    }
}

TEST_F(AnExpansion, AsksTheApplicationManagerForTheClientsRoot) {
    const ScriptedPeer manager(AppManagerSocket(),
                               Answer(4, std::string("\0\0\0\0/host/${unknown}\0junk", 25)));
    EXPECT_EQ(Expands("${container_root_path}/etc"), "/host/${unknown}/etc"); // not expanded again
    EXPECT_EQ(Asked(manager), "2 2 " + Bytes(4242));
}

struct BadAnswer {
    const char* claim;
    std::string bytes;
};

TEST_F(AnExpansion, TakesNoPathFromAnAnswerThatDoesNotAddUp) {
    const BadAnswer answers[] = {
        {"one piece", Answer(4, "abcd")},
        {"no content", Answer(0, "")},
        {"first piece longer than all", Answer(5, "abcd")},
        {"a length that wraps", Answer(0xFFFFFFFC, "abcdefgh")},
        {"the largest length", Answer(0xFFFFFFFF, "abcdefgh")},
        {"no message", "what is this, twenty-four bytes?"},
        {"half a message", Answer(4, std::string(4, '\0') + "/host").substr(0, 30)},
        {"nothing", ""},
    };
    for (const BadAnswer& answer : answers) {
        SCOPED_TRACE(answer.claim);
        m_log.Clear();
        const ScriptedPeer manager(AppManagerSocket(), answer.bytes);
        EXPECT_EQ(Expands("${container_root_path}/etc"), "invalid_root_path/etc");
        EXPECT_EQ(m_log.Errors().size(), 1U);
    }
}

TEST_F(AnExpansion, EndsAPathWithoutANulAtTheAnswer) {
    const ScriptedPeer manager(AppManagerSocket(), Answer(4, std::string(4, '\0') + "/host"));
    EXPECT_EQ(Expands("${container_root_path}/etc"), "/host/etc");
}

TEST_F(AnExpansion, WithoutTheApplicationManagerNamesNoRealPath) {
    EXPECT_EQ(Expands("${container_root_path}/etc/a.ini"), "invalid_root_path/etc/a.ini");
    {
        const ScriptedPeer manager(AppManagerSocket(), "");
        const Injection injection({Call::MESSAGE_NEW});
        EXPECT_EQ(Expands("${container_root_path}"), "invalid_root_path");
    }
    {
        const ScriptedPeer manager(AppManagerSocket(), "");
        const Injection injection({Call::MESSAGE_SENDFD});
        EXPECT_EQ(Expands("${container_root_path}"), "invalid_root_path");
    }
    EXPECT_EQ(m_log.Errors().size(), 3U);
}

TEST_F(AnExpansion, ServesACreationInsideAContainer) {
    Writes("cfg", R"({"a": 1})");
    const ScriptedPeer manager(AppManagerSocket(), Answer(4, std::string(4, '\0') + Path("") + '\0'));
    AppCfgCreateReq item = Item("cfg", "", "");
    Put(item.cfgPath, "${container_root_path}cfg");
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.Value("a"), "1");
    EXPECT_EQ(Asked(manager), "2 2 " + Bytes(static_cast<uint32_t>(getpid())));
}

TEST_F(AnExpansion, GoesOnForAClientWhosePidIsUnknown) {
    Writes("cfg", R"({"a": 1})");
    EXPECT_EQ(m_client.Value("a"), "status 404"); // the server's own requests to the framework are over
    m_log.Clear();
    const Injection injection({Call::IOCTL});
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_log.Errors().size(), 1U);
}

} // namespace ServiceTest
