#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>

using support::ChildProcess;

TEST(PlainC, CProgramReceivesTheEvents)
{
    const support::ScratchFolder scratch;
    ChildProcess program(
        {DALNIM_XML_PLAIN_C, "<a x='1'><inner>", "text<b/><![CDATA[c]]>", "</inner>&amp;</a>"},
        scratch.path());
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.output(), "start a a x=1\n"
                                "start inner a/inner\n"
                                "inner 2 inner text\n"
                                "inner 0 b -\n"
                                "inner 1 b -\n"
                                "inner 3 inner c\n"
                                "inner 1 inner -\n"
                                "data a &\n"
                                "end a a\n"
                                "0 \n");
}

TEST(PlainC, CProgramReceivesTheSyntaxError)
{
    const support::ScratchFolder scratch;
    ChildProcess program({DALNIM_XML_PLAIN_C, "<a><!-- b"}, scratch.path());
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.output(), "start a a\n700012003 Comment not terminated -- near offset 3: \n");
}
