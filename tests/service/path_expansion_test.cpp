#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "faults.h"
#include "service_fixture.h"
#include "tern/tern.h"

namespace ServiceTest {

// Answers one question, with bytes of the test's choice. Listens from its construction on.
class FakeAppManager {
public:
    FakeAppManager(const std::string& socketPath, const std::string& answer) :
        m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), m_msg(tern_message_new(0)) {
        unlink(socketPath.c_str());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_socket, 1), 0);
        m_thread = std::thread([this, answer] { Serve(answer); });
    }
    ~FakeAppManager() {
        Asked();
        tern_message_put(m_msg);
        close(m_socket);
    }

    // What it was asked: method, URI and the bytes of the content.
    std::string Asked() {
        shutdown(m_socket, SHUT_RDWR);
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_asked;
    }

private:
    void Serve(const std::string& answer) {
        const int peer = accept(m_socket, nullptr, nullptr);
        void* content = nullptr;
        uint32_t length = 0;
        if (tern_message_recvfd(m_msg, peer) >= 0 && tern_content(m_msg, &content, &length) == 0) {
            m_asked = std::to_string(m_msg->header->method) + " " + std::to_string(m_msg->header->uri) + " " +
                      std::string(static_cast<const char*>(content), length);
            send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
        close(peer);
    }

    const int m_socket;
    tern_message* const m_msg;
    std::string m_asked;
    std::thread m_thread;
};

// An answer whose content section says that its first piece has this length.
std::string Answer(uint32_t firstLength, const std::string& payload) {
    std::string frame = Frame(2, 0x80 | 2, payload);
    std::memcpy(&frame[20], &firstLength, sizeof firstLength);
    return frame;
}

class AnExpansion : public AService {
protected:
    std::string Expands(const std::string& path) { return AppCfgMgmtServer::ExpandPath(path, &m_info); }
    std::string AppManagerSocket() const { return Path("appmgr.paas.orb"); }

    AppCfgMgmtServer::ConnectionInfo m_info{4242};
};

struct Expansion {
    const char* path;
    const char* expanded;
};

TEST_F(AnExpansion, ReplacesKnownPlaceholdersAlone) {
    const Expansion cases[] = {
        {"", ""},
        {"/plain/path", "/plain/path"},
        {"${default_setting_path}a.json", "/usr/setting/a.json"},
        {"${default_backup_path}a.json", "/usr/setting_bak/a.json"},
        {"/x/${default_setting_path}${default_backup_path}", "/x//usr/setting//usr/setting_bak/"},
        {"${unknown}/x", "${unknown}/x"},
        {"${}", "${}"},
        {"${Default_setting_path}", "${Default_setting_path}"},
        {"${ default_setting_path}", "${ default_setting_path}"},
        {"/a/${default_setting_path", "/a/${default_setting_path"},
        {"${", "${"},
        {"$", "$"},
        {"a$", "a$"},
        {"$HOME/x", "$HOME/x"},
        {"$${default_setting_path}", "$/usr/setting/"},
        {"${${default_setting_path}}", "${${default_setting_path}}"},
        {"${a}}b", "${a}}b"},
        {"}${unknown}${default_setting_path}", "}${unknown}/usr/setting/"},
    };
    for (const Expansion& entry : cases) {
        EXPECT_EQ(Expands(entry.path), entry.expanded) << entry.path;
    }
}

TEST_F(AnExpansion, AsksTheApplicationManagerForTheClientsRoot) {
    FakeAppManager manager(AppManagerSocket(), Answer(4, std::string("\0\0\0\0/host/${unknown}\0junk", 25)));
    EXPECT_EQ(Expands("${container_root_path}/etc"), "/host/${unknown}/etc"); // not expanded again
    EXPECT_EQ(manager.Asked(), "2 2 " + PlatformTest::Bytes(4242));
    EXPECT_THAT(m_log.Of(), ElementsAre("1 get pid[4242] root path...", "1 get pid[4242] root path done.",
                                        "1 path in host:/host/${unknown}"));
}

struct BadAnswer {
    const char* claim;
    std::string bytes;
    const char* line;
};

TEST_F(AnExpansion, TakesNoPathFromAnAnswerThatDoesNotAddUp) {
    const BadAnswer answers[] = {
        {"one piece", Answer(4, "abcd"), "3 tern content length invalid."},
        {"no content", Answer(0, ""), "3 tern content length invalid."},
        {"first piece longer than all", Answer(5, "abcd"), "3 tern content struct fail."},
        {"a length that wraps", Answer(0xFFFFFFFC, "abcdefgh"), "3 tern content struct fail."},
        {"the largest length", Answer(0xFFFFFFFF, "abcdefgh"), "3 tern content struct fail."},
        {"no message", "what is this, twenty-four bytes?", "3 tern message recvfd fail."},
        {"half a message", Answer(4, std::string(4, '\0') + "/host").substr(0, 30),
         "3 tern message recvfd fail."},
        {"nothing", "", "3 tern message recvfd fail."},
    };
    for (const BadAnswer& answer : answers) {
        SCOPED_TRACE(answer.claim);
        m_log.Clear();
        FakeAppManager manager(AppManagerSocket(), answer.bytes);
        EXPECT_EQ(Expands("${container_root_path}/etc"), "invalid_root_path/etc");
        EXPECT_EQ(m_log.Errors(), Lines{answer.line});
    }
}

TEST_F(AnExpansion, EndsAPathWithoutANulAtTheAnswer) {
    const FakeAppManager manager(AppManagerSocket(), Answer(4, std::string(4, '\0') + "/host"));
    EXPECT_EQ(Expands("${container_root_path}/etc"), "/host/etc");
}

TEST_F(AnExpansion, WithoutTheApplicationManagerNamesNoRealPath) {
    EXPECT_EQ(Expands("${container_root_path}/etc/a.ini"), "invalid_root_path/etc/a.ini");
    {
        const FakeAppManager manager(AppManagerSocket(), "");
        const Failing failing(Call::MESSAGE_NEW);
        EXPECT_EQ(Expands("${container_root_path}"), "invalid_root_path");
    }
    {
        const FakeAppManager manager(AppManagerSocket(), "");
        const Failing failing(Call::MESSAGE_SENDFD);
        EXPECT_EQ(Expands("${container_root_path}"), "invalid_root_path");
    }
    EXPECT_EQ(m_log.Errors(), (Lines{"3 open app mgr service fail.", "3 tern message new fail.",
                                     "3 tern message sendfd fail."}));
}

TEST_F(AnExpansion, ServesACreationInsideAContainer) {
    Writes("cfg", R"({"a": 1})");
    FakeAppManager manager(AppManagerSocket(), Answer(4, std::string(4, '\0') + Path("") + '\0'));
    AppCfgCreateReq item = Item("cfg", "", "");
    Put(item.cfgPath, "${container_root_path}cfg");
    EXPECT_EQ(m_client.Creates(item), 200);
    EXPECT_EQ(m_client.Value("a"), "1");
    EXPECT_EQ(manager.Asked(), "2 2 " + PlatformTest::Bytes(static_cast<uint32_t>(getpid())));
}

TEST_F(AnExpansion, GoesOnForAClientWhosePidIsUnknown) {
    Writes("cfg", R"({"a": 1})");
    EXPECT_EQ(m_client.Value("a"), "status 404"); // the server's own requests to the framework are over
    m_log.Clear();
    const Failing failing(Call::IOCTL);
    EXPECT_EQ(m_client.Creates(Item()), 200);
    EXPECT_EQ(m_log.Errors(), Lines{"3 get conn pid fail."});
}

} // namespace ServiceTest
