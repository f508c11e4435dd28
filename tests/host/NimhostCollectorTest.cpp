#include "NimhostFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>

namespace {

using support::ChildProcess;
using testing::HasSubstr;

class NimhostCollectorTest : public NimhostFixture
{
protected:
    /** Returns the expression of the documented configuration, without the names of its groups. */
    static std::regex expression()
    {
        const std::string text = support::readFile(NIMHOST_OTEL);
        const std::size_t begin = text.find("regex: '") + 8;
        const std::string pattern = text.substr(begin, text.find('\'', begin) - begin);
        return std::regex(std::regex_replace(pattern, std::regex("\\?P<[a-z]+>"), ""));
    }
};

}

TEST_F(NimhostCollectorTest, ExpressionOfTheFileReceiverMatchesEachRecord)
{
    const std::string mask =
        "output.mask      = DATETIME THREADID MODULENAME SEVERITY SOURCEFILE LINENUMBER\n";
    EXPECT_THAT(support::readFile(NIMHOST_LOG_PROPERTIES), HasSubstr(LOG + mask));
    const std::string file =
        configure(fileSettings(LOG + mask + LOG + "severity.id = DEBUG\n" + LOG + "escape.enable = true\n"),
                  "/source/fail.every = 50\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--records", "500"}), scratch.path());
    ASSERT_EQ(host.wait(), 0);

    const std::regex record = expression();
    std::istringstream text(logText());
    int records = 0;
    std::string others;
    for (std::string line; std::getline(text, line);) {
        std::smatch groups;
        if (!std::regex_match(line, groups, record)) {
            others += line + "\n";
            continue;
        }
        ++records;
        ASSERT_EQ(groups.size(), 8U);
        EXPECT_THAT(groups[4], testing::AnyOf("DEBUG", "INFO", "NOTICE", "WARNING")) << line;
        EXPECT_THAT(std::string(groups[5]), testing::MatchesRegex("Write|[A-Za-z]+\\.cpp")) << line;
    }
    EXPECT_GE(records, 500);
    // The configuration of the log, which is not a record.
    EXPECT_THAT(others, testing::MatchesRegex(".* Write: Log Configuration:\n(\t[A-Za-z]+:[^\n]*\n)+"));
}
