#include "ToolFixture.hpp"

namespace {

/** Logs with a priority such as "<6>" in front of each line, as for the journal. */
class NimlogPriorityTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec timeout 60 '" NIMLOG_PROGRAM "' " + arguments);
    }
};

TEST_F(NimlogPriorityTest, PrioritiesOfAllLinesAreSkipped)
{
    write("app.log", "<4>net WARNING : one\n<4>two\n<4>\n<4> three <3>\n<3>net ERROR : <5>four\n");
    const std::string warning = "net WARNING : one\ntwo\n\n three <3>\n";
    const std::string error = "net ERROR : <5>four\n";
    expectResult(run("--mask 0x84 app.log"), 0, warning + error, "");
    expectResult(run("--mask 0x84 --severity error app.log"), 0, error, "");
    expectResult(run("--mask 0x84 --grep '^two$' app.log"), 0, warning, "");
    expectResult(run("--mask 0x84 --color always -s error app.log"), 0,
                 "net \x1b[31mERROR\x1b[0m : <5>four\n", "");
    expectResult(run("--mask 0x84 --json app.log"), 0,
                 "{\"module\":\"net\",\"severity\":\"WARNING\",\"text\":\"one\\ntwo\\n\\n three <3>\"}\n"
                 "{\"module\":\"net\",\"severity\":\"ERROR\",\"text\":\"<5>four\"}\n",
                 "");
    expectResult(run("--mask 0x84 - <app.log"), 0, warning + error, "");
}

TEST_F(NimlogPriorityTest, PriorityIsTheSeverityIfThePrefixHasNone)
{
    std::string log;
    for (int priority = 0; priority < 8; ++priority) {
        log += '<' + std::to_string(priority) + ">net : " + std::to_string(priority) + '\n';
    }
    write("app.log", log);
    expectResult(run("--mask MODULENAME --severity error app.log"), 0, "net : 0\nnet : 1\nnet : 2\nnet : 3\n",
                 "");
    expectResult(
        run("--mask MODULENAME --count severity app.log"), 0,
        "         3 FATAL\n         1 ERROR\n         1 WARNING\n         1 NOTICE\n         1 INFO\n"
        "         1 DEBUG\n",
        "");
    expectResult(run("--mask MODULENAME --json -g 6 app.log"), 0,
                 "{\"module\":\"net\",\"severity\":\"INFO\",\"text\":\"6\"}\n", "");
    expectResult(run("--mask NONE --count severity - <<<'<4> : text'"), 0, "         1 WARNING\n", "");
    // The field of the prefix is preferred.
    write("app.log", "<3>DEBUG : text\n");
    expectResult(run("--mask SEVERITY --severity error app.log"), 0, "", "");
}

TEST_F(NimlogPriorityTest, OtherTextInAngleBracketsIsNotAPriority)
{
    for (const char* const text : {"<8>", "<->", "<10>", "<>", "<6", "<6 >", "(6)", "<6><6>"}) {
        write("app.log", std::string(text) + "ERROR : text\n");
        expectResult(run("--mask SEVERITY app.log"), 1, std::string(text) + "ERROR : text\n",
                     "nimlog: app.log: no line starts with the expected fields; name them with --mask or "
                     "--config\n");
    }
    // The lines of a record without a priority are unchanged.
    write("app.log", "net ERROR : text\n<6>more\n");
    expectResult(run("--mask 0x84 app.log"), 0, "net ERROR : text\n<6>more\n", "");
}

TEST_F(NimlogPriorityTest, MaskIsReadFromHeadersAndReportsWithPriorities)
{
    const std::string heading =
        "<6>Sat Nov 14 15:05:20 UTC 2026 host01 server 4711 4711 com.kor.dal.nim.log.internal INFO Write: "
        "Log Configuration:\n<6>\tOutputPath:   \"\"\n"
        "<6>\tOutputMask:   0x84 [SEVERITY,MODULENAME]\n<6>\tModuleFilter: *\n";
    const std::string error = "<3>net ERROR : a\n<3>b\n";
    const std::string report = "<6>INFO : Changing logging setting: OutputMask\n"
                               "<6>\told: 0x84 [SEVERITY,MODULENAME]\n<6>\tnew: 0x4 [SEVERITY]\n";
    const std::string next = "<6>com.kor.dal.nim.log.internal : Changing logging settings: OutputMask\n"
                             "<6>\tOutputMask\n<6>\t\told: 0x4 [SEVERITY]\n<6>\t\tnew: 0x80 [MODULENAME]\n";
    write("app.log", heading + error + report + "<2>FATAL : c\n" + next + "<3>disk : d\n");
    expectResult(run("--severity error app.log"), 0, "net ERROR : a\nb\nFATAL : c\ndisk : d\n", "");
    expectResult(run("--count severity app.log"), 0, "         1 FATAL\n         2 ERROR\n         3 INFO\n",
                 "");
}

}
