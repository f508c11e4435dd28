#include "ToolFixture.hpp"

#include <algorithm>

namespace {

/** Logs with the forms of date and time that can be configured. */
class NimlogTimeTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec timeout 60 '" NIMLOG_PROGRAM "' " + arguments);
    }
};

TEST_F(NimlogTimeTest, EveryFormIsReadAndPrintedAsJson)
{
    write("app.log", "Sat Nov 14 15:05:20 UTC 2026 INFO : a\n"
                     "Sat Nov 14 16:05:20 +0100 2026 INFO : b\n"
                     "2026-11-14T15:05:20Z INFO : c\n"
                     "2026-11-14T15:05:20.123Z INFO : d\n"
                     "2026-11-14T15:05:20.123456Z INFO : e\n"
                     "2026-11-14T16:05:20+01:00 INFO : f\n"
                     "2026-11-14T04:35:20.000-10:30 INFO : g\n"
                     "2026-11-14T16:05:20.123456+01:00 INFO : h\nmore\n"
                     "2000-02-29T23:59:60.999999999Z INFO : i\n");
    expectResult(
        run("--mask DATETIME,SEVERITY --json app.log"), 0,
        "{\"time\":\"2026-11-14T15:05:20Z\",\"severity\":\"INFO\",\"text\":\"a\"}\n"
        "{\"time\":\"2026-11-14T16:05:20+01:00\",\"severity\":\"INFO\",\"text\":\"b\"}\n"
        "{\"time\":\"2026-11-14T15:05:20Z\",\"severity\":\"INFO\",\"text\":\"c\"}\n"
        "{\"time\":\"2026-11-14T15:05:20.123Z\",\"severity\":\"INFO\",\"text\":\"d\"}\n"
        "{\"time\":\"2026-11-14T15:05:20.123456Z\",\"severity\":\"INFO\",\"text\":\"e\"}\n"
        "{\"time\":\"2026-11-14T16:05:20+01:00\",\"severity\":\"INFO\",\"text\":\"f\"}\n"
        "{\"time\":\"2026-11-14T04:35:20.000-10:30\",\"severity\":\"INFO\",\"text\":\"g\"}\n"
        "{\"time\":\"2026-11-14T16:05:20.123456+01:00\",\"severity\":\"INFO\",\"text\":\"h\\nmore\"}\n"
        "{\"time\":\"2000-02-29T23:59:60.999999999Z\",\"severity\":\"INFO\",\"text\":\"i\"}\n",
        "");
    expectResult(run("--mask DATETIME,SEVERITY --count hour app.log"), 0,
                 "         1 2000-03-01T00:00Z\n         8 2026-11-14T15:00Z\n", "");
}

TEST_F(NimlogTimeTest, InvalidIsoTimeIsNotAPrefix)
{
    for (const char* const time :
         {"2026-11-31T15:05:20Z", "2026-13-14T15:05:20Z", "2026-00-14T15:05:20Z", "2026-11-00T15:05:20Z",
          "2026-11-14T24:05:20Z", "2026-11-14T15:60:20Z", "2026-11-14T15:05:61Z", "2026-11-14 15:05:20Z",
          "2026-11-14T15:05:20", "2026-11-14T15:05:20.Z", "2026-11-14T15:05:20.1234567890Z",
          "2026-11-14T15:05:20+0100", "2026-11-14T15:05:20+01:0", "2026-11-14T15:05:20ZZ",
          "2026-11-14T15:05:20z", "2026/11/14T15:05:20Z", "20261114T150520Z", "2026-11-14T15:05:20.12"}) {
        write("app.log", std::string(time) + " INFO : text\n");
        EXPECT_EQ(run("--mask DATETIME,SEVERITY app.log").status, 1) << time;
    }
}

TEST_F(NimlogTimeTest, RecordsAreFilteredByFractionsOfSeconds)
{
    const std::string a = "Sat Nov 14 15:05:20 UTC 2026 : a\n";
    const std::string b = "2026-11-14T15:05:20.250Z : b\n";
    const std::string c = "2026-11-14T16:05:20.500001+01:00 : c\n";
    const std::string d = "2026-11-14T15:05:20.999999Z : d\n";
    const std::string e = "2026-11-14T15:05:21Z : e\n";
    write("app.log", a + b + c + d + e);
    const auto since = [this](const std::string& time) {
        return run("--mask DATETIME app.log --since '" + time + "'").output;
    };
    const auto until = [this](const std::string& time) {
        return run("--mask DATETIME app.log --until '" + time + "'").output;
    };
    EXPECT_EQ(since("2026-11-14T15:05:20"), a + b + c + d + e);
    EXPECT_EQ(since("2026-11-14T15:05:20.25Z"), b + c + d + e);
    EXPECT_EQ(since("2026-11-14 15:05:20.251"), c + d + e);
    EXPECT_EQ(since("2026-11-14T17:05:20.500001+02:00"), c + d + e);
    EXPECT_EQ(since("2026-11-14T17:05:20.500002 +02:00"), d + e);
    EXPECT_EQ(since("2026-11-14T15:05:20.9999999"), e);
    // A time without a fraction names the whole second, one with a fraction all that begins with its digits.
    EXPECT_EQ(until("2026-11-14T15:05:20"), a + b + c + d);
    EXPECT_EQ(until("@1794668720"), a + b + c + d);
    EXPECT_EQ(until("Sat Nov 14 15:05:20 UTC 2026"), a + b + c + d);
    EXPECT_EQ(until("2026-11-14T15:05:20.5"), a + b + c);
    EXPECT_EQ(until("2026-11-14T15:05:20.500"), a + b + c);
    EXPECT_EQ(until("2026-11-14T15:05:20.500000Z"), a + b);
    EXPECT_EQ(until("2026-11-14T15:05:20.2"), a + b);
    EXPECT_EQ(until("2026-11-14T15:05:20.24"), a);
    EXPECT_EQ(until("2026-11-14T15:05:19"), "");
    for (const char* const time : {"2026-11-14T15:05:20.", "2026-11-14T15:05.5", "15:05.5", "2026-11-14.5",
                                   "2026-11-14T15:05:20.1234567890", "2026-11-14T15:05:20.5.5", "90.5s"}) {
        EXPECT_EQ(run(std::string("--since ") + time + " app.log").errors,
                  std::string("nimlog: \"") + time
                      + "\" is not a time: use 2026-11-14T15:05:20Z, 15:05, @1794668720 or 10m\n");
    }
}

TEST_F(NimlogTimeTest, LogsWithDifferentFormsAreSortedTogether)
{
    write("a.log", "Sat Nov 14 15:05:20 UTC 2026 : a1\nSat Nov 14 15:05:21 UTC 2026 : a2\n"
                   "2026-11-14T15:05:22.500Z : a3\n");
    write("b.log", "2026-11-14T15:05:20.000001Z : b1\n2026-11-14T15:05:20.999999Z : b2\n"
                   "2026-11-14T15:05:22.499999Z : b3\n2026-11-14T15:05:22.500001Z : b4\n");
    write("c.log", "2026-11-14T16:05:20.000+01:00 : c1\n2026-11-14T16:05:22.500+01:00 : c2\n");
    expectResult(run("--mask DATETIME a.log b.log c.log | sed 's/.* : //'"), 0,
                 "a1\nc1\nb1\nb2\na2\nb3\na3\nc2\nb4\n", "");
}

/** The stream header has the same form in every log. */
TEST_F(NimlogTimeTest, MaskIsReadFromTheStreamHeader)
{
    write("app.log",
          "Sat Nov 14 15:05:20 UTC 2026 host01 server 4711 4711 com.kor.dal.nim.log.internal INFO Write: "
          "Log Configuration:\n\tOutputMask:   0x87 [DATETIME,TIMEZONE,SEVERITY,MODULENAME]\n"
          "2026-11-14T15:05:21.123456Z net ERROR : a\n");
    expectResult(run("-s error --json app.log"), 0,
                 "{\"time\":\"2026-11-14T15:05:21.123456Z\",\"module\":\"net\",\"severity\":\"ERROR\","
                 "\"text\":\"a\"}\n",
                 "");
}

/** Returns a record without a newline. */
std::string recordAt(const char* time, const std::string& text)
{
    return std::string("2026-11-14T15:05:") + time + "Z host01 server 4711 4711 net ERROR Net 7 : " + text;
}

/** As after a restart with another configuration. */
TEST_F(NimlogTimeTest, RecordWithAnotherFormAfterATruncatedRecordIsFoundAtAnyPosition)
{
    const std::string torn =
        "Sat Nov 14 15:05:20 UTC 2026 host01 server 4711 4711 net ERROR Net 7 : connection to db1 lost";
    std::string log = torn + '\n';
    std::string laterRecords;
    for (std::size_t length = 1; length <= torn.size(); ++length) {
        const std::string later = recordAt("21", "started " + std::to_string(length)) + '\n';
        log += torn.substr(0, length) + later;
        laterRecords += later;
    }
    write("app.log", log);
    expectResult(run("app.log | grep started"), 0, laterRecords, "");
}

TEST_F(NimlogTimeTest, RecordThatQuotesAnotherOneIsNotSplit)
{
    for (const std::string& quoting : {recordAt("20.5", "the plug-in wrote: ") + recordAt("20.6", "hello"),
                                       recordAt("20.5", "\"") + recordAt("20.4", "hello") + '"',
                                       recordAt("20.5", "") + recordAt("19.9", "hello"),
                                       recordAt("20.5", "at 2026-11-14T15:05:21.5Z it ended")}) {
        write("app.log", quoting + "\n");
        expectResult(run("--json app.log | wc -l"), 0, "1\n", "");
        expectResult(run("app.log"), 0, quoting + "\n", "");
    }
}

}
