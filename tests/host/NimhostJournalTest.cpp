#include "NimhostFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** A log on standard error, which may be connected to the system journal. */
class NimhostJournalTest : public NimhostFixture
{
protected:
    /**
     * Runs the host with standard error in a file, and returns its content.
     * @param variable  the value of JOURNAL_STREAM, as a word of the shell
     */
    std::string errorsWith(const std::string& variable, const std::string& settings = "") const
    {
        const std::string file = configure(LOG + "stream = STDERR\n" + settings);
        ChildProcess host(
            shellCommand("exec 2>" + scratch.file("errors") + "\n" + variable + "\nexec \"$0\" \"$@\"",
                         {"--config", file, "--threads", "1", "--records", "1"}),
            scratch.path());
        EXPECT_EQ(host.wait(), 0);
        return readFile(scratch.file("errors"));
    }

    /** Sets the variable for the file that is standard error. */
    const std::string journal = "export JOURNAL_STREAM=$(stat -Lc %d:%i /dev/fd/2)";
};

TEST_F(NimhostJournalTest, LinesHaveTheirPriorityIfStandardErrorIsTheJournal)
{
    const std::string errors = errorsWith(journal);
    EXPECT_THAT(errors, HasSubstr("\n<5>"));
    EXPECT_THAT(errors, HasSubstr(" : nimhost starts with 1 sources\n"));
    EXPECT_THAT("\n" + errors, Not(testing::ContainsRegex("\n[^<]")));
}

TEST_F(NimhostJournalTest, LinesHaveNoneIfStandardErrorIsNotTheJournal)
{
    for (const std::string variable :
         {"unset JOURNAL_STREAM", "export JOURNAL_STREAM=8:12345",
          "export JOURNAL_STREAM=$(stat -Lc %d:%i /dev/fd/2)0", "export JOURNAL_STREAM="}) {
        const std::string errors = errorsWith(variable);
        EXPECT_THAT(errors, HasSubstr(" : nimhost starts with 1 sources\n")) << variable;
        EXPECT_THAT("\n" + errors, Not(HasSubstr("\n<"))) << variable;
    }
}

TEST_F(NimhostJournalTest, SettingTakesPrecedence)
{
    EXPECT_THAT("\n" + errorsWith(journal, LOG + "priorityPrefix = false\n"), Not(HasSubstr("\n<")));
    EXPECT_THAT(errorsWith("unset JOURNAL_STREAM", LOG + "priorityPrefix = true\n"), StartsWith("<6>"));
}

}
