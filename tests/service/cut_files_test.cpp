// Which files count as cut, and for how long.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "acm_cut_files.h"
#include "app_cfg_limits.h"
#include "platform/root_directory.h"

namespace ServiceTest {

using namespace SystemServer;

class ACutFile : public ::testing::Test {
protected:
    ~ACutFile() override { NoteCut(m_path, false); }

    void Writes(const std::string& text) const { m_directory.Writes("file", text); }
    void IsDated(time_t seconds, long nanoseconds) const {
        const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(utimensat(AT_FDCWD, m_path.c_str(), times, 0), 0);
    }

    const PlatformTest::RootDirectory m_directory;
    const std::string m_path = m_directory.Of("file");
};

struct Change {
    const char* claim;
    std::function<void()> make;
    bool isStillCut;
};

TEST_F(ACutFile, IsAnotherOnceAProgramHasChangedIt) {
    const std::string twin = m_directory.Of("twin");
    const Change changes[] = {
        {"nothing", [] {}, true},
        {"its mode", [&] { std::filesystem::permissions(m_path, std::filesystem::perms::all); }, true},
        {"its length",
         [&] {
             Writes("{}");
             IsDated(1000, 5);
         },
         false},
        {"its second", [&] { IsDated(1001, 5); }, false},
        {"a part of its second", [&] { IsDated(1000, 6); }, false},
        {"the file",
         [&] {
             std::filesystem::copy_file(m_path, twin);
             std::filesystem::rename(twin, m_path);
             IsDated(1000, 5);
         },
         false},
        {"there is none", [&] { std::filesystem::remove(m_path); }, true},
    };
    for (const Change& change : changes) {
        SCOPED_TRACE(change.claim);
        Writes("{");
        IsDated(1000, 5);
        NoteCut(m_path, true);
        change.make();
        EXPECT_EQ(IsCut(m_path), change.isStillCut);
        EXPECT_EQ(IsCut(m_path), change.isStillCut);
    }
}

TEST_F(ACutFile, ThatWasNeverSeenIsTheOneThatIsFoundFirst) {
    NoteCut(m_path, true); // there is none: whatever comes is another's
    EXPECT_TRUE(IsCut(m_path));
    Writes("{}");
    EXPECT_FALSE(IsCut(m_path));

    const std::string directory = m_directory.Of("loop");
    std::filesystem::create_symlink("loop", directory);
    const std::string hidden = directory + "/file";
    NoteCut(hidden, true);
    std::filesystem::remove(directory);
    std::filesystem::create_directory(directory);
    std::ofstream(hidden) << "{";
    EXPECT_TRUE(IsCut(hidden));
    std::ofstream(hidden) << "{}";
    EXPECT_FALSE(IsCut(hidden));
}

TEST_F(ACutFile, IsNoDevice) {
    NoteCut("/dev/null", true);
    EXPECT_FALSE(IsCut("/dev/null"));
}

TEST_F(ACutFile, IsForgottenWhenTooManyAreNewer) {
    const auto name = [&](size_t number) { return m_path + std::to_string(number); };
    for (size_t number = 0; number <= MAX_CUT_FILES; ++number) {
        NoteCut(name(number), true);
    }
    EXPECT_FALSE(IsCut(name(0)));
    EXPECT_TRUE(IsCut(name(1)));
    EXPECT_TRUE(IsCut(name(MAX_CUT_FILES)));
    for (size_t number = 0; number <= MAX_CUT_FILES; ++number) {
        NoteCut(name(number), false);
    }
}

} // namespace ServiceTest
