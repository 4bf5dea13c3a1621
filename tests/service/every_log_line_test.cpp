// After the whole suite: every log line of the service's sources has been written by some case. What the
// cases compare is what clients and files see; a line that none of them leads to is either dead or lacks its
// case.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include <gtest/gtest.h>

#include "support/log_lines.h"

namespace ServiceTest {

// Nothing that a client or a file can do leads to these: they tell of faults of the program itself, and of
// shortages of memory, which the fault sweep makes.
constexpr const char* OUT_OF_REACH[] = {"\"serialise [", "is too large to be loaded again",
                                        "fault.displayText().c_str());"};

bool IsOutOfReach(const std::string& statement) {
    return std::any_of(std::begin(OUT_OF_REACH), std::end(OUT_OF_REACH),
                       [&](const char* part) { return statement.find(part) != std::string::npos; });
}

// The places of a source's log statements that nothing was written from.
std::string SilentPlaces(const std::filesystem::path& source, const std::set<std::string>& written) {
    const std::string name = "system_server/app_cfg_mgmt_service/src/" + source.stem().string() + ":";
    std::ifstream file(source);
    std::string silent;
    size_t first = 0; // line of the statement that is being read
    bool wasWritten = false;
    std::string statement;
    size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (first == 0 && line.find(" ACM_LOG(") != std::string::npos) {
            first = number;
            wasWritten = false;
            statement.clear();
        }
        statement += line;
        wasWritten = wasWritten || written.count(name + std::to_string(number)) != 0;
        if (first != 0 && line.find(");") != std::string::npos) {
            silent += wasWritten || IsOutOfReach(statement) ? "" : name + std::to_string(first) + "\n";
            first = 0;
        }
    }
    return silent;
}

class EveryLogLine : public ::testing::Environment {
    void TearDown() override {
        const ::testing::UnitTest& suite = *::testing::UnitTest::GetInstance();
        if (suite.test_to_run_count() != suite.total_test_count() || !suite.Passed()) {
            return; // a part of the cases leads to a part of the lines
        }
        std::string silent;
        const std::set<std::string> written = Support::LogLines::Places();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(SERVICE_SOURCES)) {
            silent += entry.is_regular_file() ? SilentPlaces(entry.path(), written) : "";
        }
        EXPECT_EQ(silent, "") << "no case leads to these log lines";
    }
};

const auto* const g_everyLogLine = ::testing::AddGlobalTestEnvironment(new EveryLogLine);

} // namespace ServiceTest
