#include "ToolFixture.hpp"

namespace {

/** Completes the last word of a command line with the completion script for bash. */
class CompletionTest : public ToolFixture
{
protected:
    std::string complete(const std::string& tool, const std::string& program, const std::string& words) const
    {
        const std::string script = std::string(TOOLS_SOURCE) + '/' + tool + '/' + tool + ".bash";
        const Result result = shell("PATH=$(dirname '" + program + "'):$PATH; source '" + script
                                    + "'; compopt() { :; }; COMP_WORDS=(" + tool + ' ' + words
                                    + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _" + tool
                                    + "; printf '%s\\n' \"${COMPREPLY[@]}\" | LC_ALL=C sort");
        EXPECT_EQ(result.errors, "");
        return result.output;
    }
};

TEST_F(CompletionTest, OfNimprops)
{
    write("host.properties", "pool/threads=2\npool/pending=3\nother=1\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "''"),
              "--help\n--version\ncheck\ndiff\nget\ninstance\nprint\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "pr"), "print\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "check ho"), "host.properties\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "check --"), "--log\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "get ho"), "host.properties\n");
    EXPECT_EQ(complete("nimprops", NIMPROPS_PROGRAM, "get host.properties pool"),
              "pool/pending\npool/threads\n");
}

TEST_F(CompletionTest, OfNimlog)
{
    write("app.log", "");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "ap"), "app.log\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "app.log --s"), "--severity\n--since\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "app.log --u"), "--unescape\n--until\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "--count ''"), "hour\nmodule\nseverity\nsource\nthread\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "--config ap"), "app.log\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "-s WA"), "WARNING\n");
    EXPECT_EQ(complete("nimlog", NIMLOG_PROGRAM, "--since 1"), "\n");
}

TEST_F(CompletionTest, OfNimxml)
{
    write("a.xml", "<a/>");
    EXPECT_EQ(complete("nimxml", NIMXML_PROGRAM, "''"), "--help\n--version\ncheck\nprint\n");
    EXPECT_EQ(complete("nimxml", NIMXML_PROGRAM, "check a"), "a.xml\n");
}

}
