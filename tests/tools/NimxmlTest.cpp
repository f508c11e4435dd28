#include "ToolFixture.hpp"

#include <gmock/gmock.h>

#include <string>
#include <utility>

namespace {

class NimxmlTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec '" NIMXML_PROGRAM "' " + arguments);
    }
};

TEST_F(NimxmlTest, InvalidCommandLineIsRejectedWithOneLine)
{
    expectResult(run(""), 2, "", "nimxml: expected a command: print or check\n");
    expectResult(run("mend a"), 2, "", "nimxml: unknown command mend\n");
    expectResult(run("--bogus"), 2, "", "nimxml: unknown option --bogus\n");
    expectResult(run("print"), 2, "", "nimxml: print requires the operands FILE\n");
    expectResult(run("check"), 2, "", "nimxml: check requires the operands FILE...\n");
    expectResult(run("print missing"), 2, "", "nimxml: cannot read missing: No such file or directory\n");
}

TEST_F(NimxmlTest, PrintsVersionAndUsage)
{
    expectResult(run("--version"), 0, "nimxml (dalnim) " TOOLS_VERSION "\n", "");
    const Result help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, testing::StartsWith("usage: nimxml print FILE\n"));
}

TEST_F(NimxmlTest, PrintsTheEvents)
{
    write("a.xml", "<?xml version=\"1.0\"?>\n"
                   "<a x=\"1&quot;\n2\" y='\\'>\n"
                   "  <b/>text\t&lt;<!-- gone --><![CDATA[<b>\r\n\x01\x7f]]>\n"
                   "</a>\n");
    const std::string events = "begin a x=\"1\\\" 2\" y=\"\\\\\"\n"
                               "begin a/b\n"
                               "end a/b\n"
                               "text a \"text\\t<\"\n"
                               "cdata a \"<b>\\r\\n\\x01\\x7f\"\n"
                               "end a\n";
    expectResult(run("print a.xml"), 0, events, "");
    expectResult(run("print - < a.xml"), 0, events, "");
    expectResult(run("print a.xml > /dev/full"), 2, "",
                 "nimxml: cannot write to standard output: No space left on device\n");
}

TEST_F(NimxmlTest, PrintsTheEventsBeforeAnError)
{
    write("a.xml", "<a>\n <b c=\"1\" c=\"2\"/></a>");
    expectResult(run("print a.xml"), 1, "begin a\n",
                 "nimxml: a.xml:2:11: offset 14: Duplicate attribute name\n");
}

/** Same results as Parser, except for NUL bytes, which end the document for Parser. */
TEST_F(NimxmlTest, ContentAfterTheRootElement)
{
    for (const char* const accepted :
         {"", " \t\r\n", "<!-- more -->", "<?more?>", "<!DOCTYPE a>", "\n<!-- a -->\n<?b?>\n"}) {
        write("a.xml", std::string("<a/>") + accepted);
        expectResult(run("check a.xml"), 0, "", "");
    }
    const std::pair<std::string, std::string> rejected[] = {
        {"x", "Invalid data contained outside a top-level Element"},
        {"</a>", "Multiple top-level Elements encountered"},
        {"<b/>", "Multiple top-level Elements encountered"},
        {"<![CDATA[x]]>", "Multiple top-level Elements encountered"},
        {std::string("\0", 1), "NUL byte in the document; the parser ignores the rest"},
        {std::string("\0x", 2), "NUL byte in the document; the parser ignores the rest"},
        {std::string("\0", 1) + std::string(2000, 'x'),
         "NUL byte in the document; the parser ignores the rest"}};
    for (const auto& [rest, error] : rejected) {
        write("a.xml", "<a/>" + rest);
        const Result result = run("check a.xml");
        EXPECT_EQ(result.status, 1) << rest;
        EXPECT_THAT(result.output, testing::StartsWith("a.xml:1:")) << rest;
        EXPECT_THAT(result.output, testing::EndsWith(error + "\n")) << rest;
        EXPECT_EQ(run("print a.xml").status, 1) << rest;
    }
}

TEST_F(NimxmlTest, ChecksManyDocuments)
{
    write("good.xml", "<a/>");
    write("empty.xml", "");
    write("end.xml", "<a>\n</b>\n");
    write("open.xml", "<a>");
    write("zero.xml", std::string("<a/>\n\0<b/>", 10));
    expectResult(run("check good.xml empty.xml"), 0, "", "");
    expectResult(run("check end.xml good.xml missing open.xml zero.xml"), 2,
                 "end.xml:2:3: offset 6: Mismatched End Tag\n"
                 "open.xml:1:1: offset 0: Premature end of data stream (not at top-level)\n"
                 "zero.xml:2:1: offset 5: NUL byte in the document; the parser ignores the rest\n",
                 "nimxml: cannot read missing: No such file or directory\n");
    expectResult(run("check end.xml good.xml"), 1, "end.xml:2:3: offset 6: Mismatched End Tag\n", "");
}

}
