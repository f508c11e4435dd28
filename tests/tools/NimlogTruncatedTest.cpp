#include "ToolFixture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace {

/** The form of the records of a log. */
struct Form
{
    const char* name;
    /** The priority in front of each line, which nimlog does not print. */
    const char* priority;
    const char* timeBegin;
    /** Seconds of the first record, of those that are truncated, and of those that follow them. */
    const char* seconds[3];
    const char* timeEnd;
};

class NimlogTruncatedTest : public ToolFixture, public testing::WithParamInterface<Form>
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec timeout 60 '" NIMLOG_PROGRAM "' " + arguments);
    }

    /** Returns a record as nimlog prints it, without a newline. */
    static std::string recordAt(const char* second, const std::string& text)
    {
        const Form& form = GetParam();
        return std::string(form.timeBegin) + second + form.timeEnd
               + " host01 server 4711 4711 net ERROR Net 7 : " + text;
    }
};

std::string withoutNewlines(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

/** Whichever byte a process was killed after, the first record of the next process is found. */
TEST_P(NimlogTruncatedTest, RecordAfterATruncatedRecordIsFoundAtAnyPosition)
{
    const std::string priority = GetParam().priority;
    const auto& seconds = GetParam().seconds;
    const std::string torn = priority + recordAt(seconds[1], "connection to db1 lost");
    std::string log = priority + recordAt(seconds[0], "first") + '\n';
    std::string laterRecords;
    std::size_t records = 1;
    for (std::size_t length = 1; length <= torn.size(); ++length) {
        const std::string later = recordAt(seconds[2], "started " + std::to_string(length)) + '\n';
        log += torn.substr(0, length) + priority + later;
        laterRecords += later;
        // A truncated prefix is a line of the previous record.
        records += length < torn.find("connection") ? 1U : 2U;
    }
    write("app.log", log);
    expectResult(run("app.log | grep started"), 0, laterRecords, "");
    EXPECT_EQ(run("--json app.log | wc -l").output, std::to_string(records) + '\n');
    if (priority.empty()) {
        EXPECT_EQ(withoutNewlines(run("app.log").output), withoutNewlines(log));
    }
}

constexpr Form FORMS[] = {
    {"DefaultTime", "", "Sat Nov 14 15:05:", {"19", "20", "21"}, " UTC 2026"},
    {"TimeWithFraction", "", "2026-11-14T15:05:", {"19.999999", "20.123456", "21.000001"}, "Z"},
    {"Priority", "<3>", "Sat Nov 14 15:05:", {"19", "20", "21"}, " UTC 2026"},
};

INSTANTIATE_TEST_SUITE_P(AllForms, NimlogTruncatedTest, testing::ValuesIn(FORMS),
                         [](const testing::TestParamInfo<Form>& form) { return form.param.name; });

}
