#include "NimhostFixture.hpp"

#include <dalnim/xml/Parser.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace nim = com::kor::dal::nim;
using support::ChildProcess;
using support::readFile;
using support::writeFile;
using testing::HasSubstr;
using testing::Not;

class NimhostRequestsTest : public NimhostFixture
{
protected:
    /**
     * Writes a configuration whose log and plug-ins are in the temporary directory. Returns its path. Hides
     * the function for sources.
     */
    std::string configure(const std::string& settings = "", const std::string& logOutput = "file = host.log")
    {
        std::filesystem::create_directories(scratch.file("plugins"));
        for (const char* name : {"encoder", "calculator", "matcher", "cimom"}) {
            std::filesystem::copy_file(std::string(NIMHOST_PLUGINS) + "/" + name + ".so", plugin(name),
                                       std::filesystem::copy_options::overwrite_existing);
        }
        const std::string file = scratch.file("test.properties");
        writeFile(file, "com.kor.dal.nim.log.Control.directory = log\n"
                        "com.kor.dal.nim.log.Control."
                            + logOutput
                            + "\n"
                              "com.kor.dal.nim.log.Control.severity.id = DEBUG\n"
                              "com.kor.dal.nim.log.Control.output.mask = MODULENAME SEVERITY\n"
                              "pool/threads = 2\npool/pending = 4\n"
                              "host/plugins = encoder calculator matcher\nhost/plugin.directory = plugins\n"
                            + settings);
        return file;
    }

    std::string plugin(const std::string& name) const
    {
        return scratch.file("plugins/" + name + ".so");
    }

    /** Writes a document. Returns its path. */
    std::string document(const std::string& name, const std::string& text) const
    {
        writeFile(scratch.file(name), text);
        return scratch.file(name);
    }

    /** Writes a document of one request. Returns its path. */
    static std::string request(const std::string& plugin, const std::string& rest)
    {
        return "<requests><request plugin=\"" + plugin + "\" " + rest + "</request></requests>";
    }

    ChildProcess run(const std::string& configuration, const std::vector<std::string>& documents) const
    {
        std::vector<std::string> words = {"--config", configuration};
        words.insert(words.end(), documents.begin(), documents.end());
        return ChildProcess(command(words), scratch.path());
    }

    /** Returns the result element of request `number` of a document. */
    std::string result(const std::string& name, int number, const std::string& rest) const
    {
        return "  <result document=\"" + scratch.file(name) + "\" number=\"" + std::to_string(number) + "\" "
               + rest + "\n";
    }

    static std::string results(const std::string& elements)
    {
        return "<results>\n" + elements + "</results>\n";
    }
};

/** A named pipe, to feed the host step by step. */
class NamedPipe
{
public:
    explicit NamedPipe(const std::string& path) : name(path)
    {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
    /** Waits for a reader, writes a complete document and closes the pipe. */
    void write(const std::string& text) const
    {
        const int descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_NE(descriptor, -1);
        EXPECT_EQ(::write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(descriptor);
    }

    /** Returns true if a process has the pipe open for reading. */
    bool isRead() const
    {
        const int descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
        if (descriptor == -1) {
            return false;
        }
        writers.push_back(descriptor);
        return true;
    }
    ~NamedPipe()
    {
        for (const int descriptor : writers) {
            close(descriptor);
        }
    }
    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;

    const std::string name;

private:
    /** Kept open until the end: closing it is the end of the document. */
    mutable std::vector<int> writers;
};

}

TEST_F(NimhostRequestsTest, EncoderEncodesTextsAndFiles)
{
    writeFile(scratch.file("bytes"), std::string("\0\1\2\xFF", 4));
    const std::string path = document(
        "d.xml", "<requests>"
                 "<request plugin='encoder' operation='base64'><text>Hello, world!</text></request>"
                 "<request plugin='encoder' operation='base64'><file>"
                     + scratch.file("bytes")
                     + "</file></request>"
                       "<request plugin='encoder' operation='hexdump'><text>a&lt;b</text></request>"
                       "<request plugin='encoder' operation='base64-decode'><text>AAE=</text></request>"
                       "</requests>");
    ChildProcess host = run(configure(), {path});
    EXPECT_EQ(host.wait(), 0) << host.errors();
    EXPECT_EQ(host.output(),
              results(result("d.xml", 1, "plugin=\"encoder\" status=\"ok\">SGVsbG8sIHdvcmxkIQ==</result>")
                      + result("d.xml", 2, "plugin=\"encoder\" status=\"ok\">AAEC/w==</result>")
                      + result("d.xml", 3,
                               "plugin=\"encoder\" status=\"ok\">"
                               "00000000: 61 3C 62                                        | a&lt;b</result>")
                      + result("d.xml", 4, "plugin=\"encoder\" status=\"ok\">&#0;&#1;</result>")));
    EXPECT_EQ(tableRow(host.errors(), "tasks run"), 4U);
    EXPECT_EQ(tableRow(host.errors(), "tasks that failed"), 0U);
    EXPECT_EQ(tableRow(host.errors(), "tasks with the wrong token"), 0U);
    EXPECT_EQ(tableRow(host.errors(), "documents read"), 1U);
    EXPECT_EQ(tableRow(host.errors(), "XML elements read"), 9U);
}

TEST_F(NimhostRequestsTest, CalculatorReportsValuesOutOfRange)
{
    struct Case
    {
        const char* request;
        const char* answer;
    };
    const Case cases[] = {
        {"operation='add' type='signed char'><number>100</number><number>27</number>", "ok\">127"},
        {"operation='add' type='signed char'><number>127</number><number>1</number>",
         "failed\">the result is out of the range of the type"},
        {"operation='add' type='signed char'><number>128</number><number>1</number>",
         "failed\">String representation exceeds capacity of numeric type."},
        {"operation='subtract' type='unsigned char'><number>0</number><number>1</number>",
         "failed\">the result is out of the range of the type"},
        {"operation='add' type='unsigned char'><number>-1</number><number>1</number>",
         "failed\">String representation exceeds capacity of numeric type."},
        {"operation='divide' type='short'><number>-32768</number><number>-1</number>",
         "failed\">the result is out of the range of the type"},
        {"operation='multiply' type='unsigned short'><number>0xFF</number><number>257</number>",
         "ok\">65535"},
        {"operation='divide' type='int'><number>7</number><number>-2</number>", "ok\">-3"},
        {"operation='divide' type='unsigned int'><number>7</number><number>0</number>",
         "failed\">division by zero"},
        {"operation='add' type='long'><number>9223372036854775807</number><number>-1</number>",
         "ok\">9223372036854775806"},
        {"operation='add' type='long'><number>9223372036854775808</number><number>1</number>",
         "failed\">String representation exceeds capacity of numeric type."},
        {"operation='add' type='unsigned long'><number>18446744073709551614</number><number>1</number>",
         "ok\">18446744073709551615"},
        {"operation='add' type='long long'><number>9223372036854775807</number><number>1</number>",
         "failed\">the result is out of the range of the type"},
        {"operation='add' type='unsigned long long'><number>010</number><number>1</number>", "ok\">9"},
        {"operation='divide' type='float'><number>1</number><number>4</number>", "ok\">0.25"},
        {"operation='add'><number>0.5</number><number>0.25</number><number>1e3</number>", "ok\">1000.75"},
        {"operation='add' type='double'><number>1</number>",
         "failed\">the calculator requires at least two numbers"},
        {"operation='add' type='int'><number>1</number><number>two</number>",
         "failed\">Invalid string representation of numeric type."},
        {"operation='add' type='byte'><number>1</number><number>2</number>",
         "failed\">type &quot;byte&quot; is not available in the calculator"},
        {"operation='power'><number>1</number><number>2</number>",
         "failed\">unknown operation &quot;power&quot; of the calculator"},
    };
    std::string text = "<requests>";
    std::string expected;
    int number = 0;
    for (const Case& one : cases) {
        text += "<request plugin='calculator' " + std::string(one.request) + "</request>";
        expected += result("d.xml", ++number,
                           "plugin=\"calculator\" status=\"" + std::string(one.answer) + "</result>");
    }
    ChildProcess host = run(configure(), {document("d.xml", text + "</requests>")});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(), results(expected));
    EXPECT_EQ(tableRow(host.errors(), "tasks that failed"), 12U);
}

TEST_F(NimhostRequestsTest, MatcherFindsLines)
{
    const std::string path = document(
        "d.xml",
        "<requests>"
        "<request plugin='matcher' operation='lines'><expression>^[ab]+$</expression>"
        "<text>abba\nabc\n<!-- still one text -->b\n</text></request>"
        "<request plugin='matcher' "
        "operation='count'><expression>b</expression><text>a\nb\nabc</text></request>"
        "<request plugin='matcher' operation='lines'><expression>(</expression><text>x</text></request>"
        "</requests>");
    ChildProcess host = run(configure("matcher/numbers = true\n"), {path});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(),
              results(result("d.xml", 1, "plugin=\"matcher\" status=\"ok\">1:abba\n3:b</result>")
                      + result("d.xml", 2, "plugin=\"matcher\" status=\"ok\">2</result>")
                      + result("d.xml", 3,
                               "plugin=\"matcher\" status=\"failed\" error=\"8\">"
                               "Bad pattern: Unmatched ( or \\(, (</result>")));
}

TEST_F(NimhostRequestsTest, PluginsGetTheSettingsOfTheirInstance)
{
    const std::string configuration = configure("*/width = 4\nencoder/width = 8\n"
                                                "calculator/types = int,double\n/numbers = false\n");
    const std::string path = document(
        "d.xml", "<requests>"
                 "<request plugin='encoder' operation='base64'><text>123456789</text></request>"
                 "<request plugin='calculator' operation='add' type='short'/>"
                 "<request plugin='matcher' operation='lines'><expression>.</expression><text>x</text>"
                 "</request></requests>");
    ChildProcess host = run(configuration, {path});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.output(), HasSubstr("status=\"ok\">MTIzNDU2\nNzg5</result>"));
    EXPECT_THAT(host.output(), HasSubstr("type &quot;short&quot; is not available in the calculator"));
    EXPECT_THAT(host.output(), HasSubstr("status=\"ok\">x</result>"));
}

TEST_F(NimhostRequestsTest, EachPluginLogsUnderItsOwnModule)
{
    ChildProcess host =
        run(configure(), {document("d.xml", request("encoder", "operation='base64'><text>x</text>"))});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr("nimhost.plugin.encoder INFO : encoder in rows of 0\n"));
    EXPECT_THAT(logText(), HasSubstr("nimhost.plugin.encoder DEBUG : base64 gave 4 bytes\n"));
    EXPECT_THAT(logText(),
                HasSubstr("com.kor.dal.nim INFO : Unloaded dynamic library \"" + plugin("encoder") + "\"\n"));
    EXPECT_THAT(logText(), Not(HasSubstr("nimhost.plugin.matcher"))) << "nobody asked for it";
}

TEST_F(NimhostRequestsTest, InvalidDocumentIsReportedAndTheNextOneServed)
{
    const std::string broken =
        document("broken.xml", "<requests><request plugin='encoder' operation='base64'>"
                               "<text>x</txt></request></requests>");
    const std::string strange = document("strange.xml", "<requests><question/></requests>");
    const std::string good = document("good.xml", request("encoder", "operation='base64'><text>x</text>"));
    const std::string missing = scratch.file("missing.xml");
    ChildProcess host = run(configure(), {broken, strange, missing, scratch.path(), good});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(
        host.output(),
        results("  <document name=\"" + broken
                + "\" status=\"refused\">Mismatched End Tag -- near offset 64: txt</document>\n"
                  "  <document name=\""
                + strange
                + "\" status=\"refused\">&lt;question&gt; is not allowed at requests/question</document>\n"
                  "  <document name=\""
                + missing
                + "\" status=\"refused\">No such file or directory</document>\n"
                  "  <document name=\""
                + scratch.path() + "\" status=\"refused\">Is a directory</document>\n"
                + result("good.xml", 1, "plugin=\"encoder\" status=\"ok\">eA==</result>")));
    EXPECT_THAT(host.errors(),
                HasSubstr("nimhost: " + broken + ": Mismatched End Tag -- near offset 64: txt\n"
                          + "nimhost: " + strange + ": <question> is not allowed at requests/question\n"));
    EXPECT_EQ(tableRow(host.errors(), "documents read"), 1U);
    EXPECT_EQ(tableRow(host.errors(), "documents rejected"), 4U);
    EXPECT_THAT(logText(), HasSubstr(broken + " was rejected : "));
}

TEST_F(NimhostRequestsTest, NulByteAnywhereInADocumentIsRejected)
{
    const std::string zero("\0", 1);
    const std::string whole = request("encoder", "operation='base64'><text>x</text>");
    const std::string last = document("last.xml", whole + zero);
    const std::string hidden =
        document("hidden.xml", whole + "\n" + zero + "<requests>" + std::string(5000, 'x'));
    const std::string comment = document("comment.xml", whole + "<!-- " + zero + " -->");
    const std::string inside = document("inside.xml", "<requests>" + zero + whole.substr(10));
    const std::string more = document("more.xml", whole + whole);
    const std::string blank = document("blank.xml", whole + " \n<!-- the end -->\n<?and so on?>\n");
    ChildProcess host = run(configure(), {last, hidden, comment, inside, more, blank});
    EXPECT_EQ(host.wait(), 1);
    const auto rejected = [](const std::string& path, const std::string& error) {
        return "  <document name=\"" + path + "\" status=\"refused\">" + error + "</document>\n";
    };
    const std::string nulByte = "NUL byte in the document; the parser ignores the rest -- near offset ";
    EXPECT_EQ(host.output(),
              results(rejected(last, nulByte + "90") + rejected(hidden, nulByte + "91")
                      + rejected(comment, "Comment not terminated -- near offset 90: &lt;!-- ...")
                      + rejected(inside, "Premature end of data stream (not at top-level) -- near offset 0: "
                                         "&lt;requests")
                      + rejected(more, "Multiple top-level Elements encountered -- near offset 90: "
                                       "&lt;requests&gt;&lt;reque...")
                      + result("blank.xml", 1, "plugin=\"encoder\" status=\"ok\">eA==</result>")));
    EXPECT_EQ(tableRow(host.errors(), "documents rejected"), 5U);
}

TEST_F(NimhostRequestsTest, OnlyListedPluginsAreLoaded)
{
    const std::string path = document("d.xml", "<requests><request plugin='cimom' operation='x'/>"
                                               "<request plugin='../plugins/encoder' operation='base64'/>"
                                               "<reload plugin='oracle'/></requests>");
    ChildProcess host = run(configure(), {path});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.output(), HasSubstr("unknown plug-in &quot;cimom&quot;"));
    EXPECT_THAT(host.output(), HasSubstr("unknown plug-in &quot;../plugins/encoder&quot;"));
    EXPECT_THAT(host.output(), HasSubstr("unknown plug-in &quot;oracle&quot;"));
}

TEST_F(NimhostRequestsTest, PluginThatCannotBeLoadedFailsItsRequests)
{
    const std::string configuration = configure();
    std::filesystem::remove(plugin("encoder"));
    const std::string path = document("d.xml", "<requests><request plugin='encoder' operation='base64'/>"
                                               "<request plugin='calculator' operation='add'>"
                                               "<number>1</number><number>1</number></request></requests>");
    ChildProcess host = run(configuration, {path});
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.output(),
                HasSubstr("status=\"failed\" error=\"2\">Unable to load &quot;" + plugin("encoder")));
    EXPECT_THAT(host.output(), HasSubstr("plugin=\"calculator\" status=\"ok\">2</result>"));
}

TEST_F(NimhostRequestsTest, StandardInputCanBeADocument)
{
    const std::string configuration = configure();
    const std::string path = document("d.xml", request("encoder", "operation='base64'><text>in</text>"));
    ChildProcess host({"/bin/sh", "-c", std::string("exec \"$0\" --config \"$1\" - <\"$2\""), NIMHOST_PROGRAM,
                       configuration, path},
                      scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(host.output(), results("  <result document=\"-\" number=\"1\" plugin=\"encoder\" status=\"ok\">"
                                     "aW4=</result>\n"));
}

TEST_F(NimhostRequestsTest, ResultsAreInTheOrderOfTheRequests)
{
    std::string text = "<requests>";
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        text += "<request plugin='calculator' operation='add' type='int'><number>" + std::to_string(i)
                + "</number><number>1</number></request>";
        expected += result("d.xml", i + 1,
                           "plugin=\"calculator\" status=\"ok\">" + std::to_string(i + 1) + "</result>");
    }
    ChildProcess host = run(configure(), {document("d.xml", text + "</requests>")});
    EXPECT_EQ(host.wait(), 0);
    EXPECT_TRUE(host.output() == results(expected));
    EXPECT_EQ(tableRow(host.errors(), "tasks with the wrong token"), 0U);
}

TEST_F(NimhostRequestsTest, ResultsAreAWellFormedDocument)
{
    const std::string path =
        document("d \"&<>.xml", "<requests><request plugin='encoder' operation='base64-decode'>"
                                "<text>PGEmYj4iAAkKDQ==</text></request></requests>");
    ChildProcess host = run(configure(), {path});
    EXPECT_EQ(host.wait(), 0);

    class Reader : public nim::xml::Consumer
    {
    public:
        bool elementBegin(const nim::String&, const nim::String&, const nim::xml::Attributes& attrs) override
        {
            for (const nim::xml::Attribute& attribute : attrs) {
                values.push_back(attribute.value);
            }
            return true;
        }
        bool elementEnd(const nim::String&, const nim::String&) override
        {
            return true;
        }
        bool elementProcessData(const nim::String&, const nim::String&, const nim::String& data,
                                bool) override
        {
            text += data;
            return true;
        }
        std::vector<nim::String> values;
        nim::String text;

    protected:
        ~Reader() override = default;
    };
    nim::mem::RcoRef<Reader> reader(new Reader);
    nim::xml::ConsumerRef consumer(reader);
    nim::xml::Parser(consumer).parse(host.output(), 1);
    EXPECT_THAT(reader->values, testing::ElementsAre(path, "1", "encoder", "ok"));
    EXPECT_EQ(reader->text, "<a&b>\"") << "up to the NUL, which a reader of C texts takes for the end";
}

TEST_F(NimhostRequestsTest, ReloadReplacesAPlugin)
{
    const NamedPipe first(scratch.file("first"));
    const NamedPipe second(scratch.file("second"));
    ChildProcess host = run(configure(), {first.name, second.name});
    first.write(request("encoder", "operation='base64'><text>x</text>"));
    ASSERT_TRUE(waitFor([&] { return host.output().find("eA==") != std::string::npos; }));

    // The new library takes effect when the old one has been unloaded.
    std::filesystem::copy_file(plugin("calculator"), plugin("new"));
    std::filesystem::rename(plugin("new"), plugin("encoder"));
    second.write("<requests><request plugin='encoder' operation='base64'><text>y</text></request>"
                 "<reload plugin='encoder'/>"
                 "<request plugin='encoder' operation='add'><number>1</number><number>2</number></request>"
                 "</requests>");
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(host.output(), results(result("first", 1, "plugin=\"encoder\" status=\"ok\">eA==</result>")
                                     + result("second", 1, "plugin=\"encoder\" status=\"ok\">eQ==</result>")
                                     + result("second", 2, "plugin=\"encoder\" status=\"reloaded\"/>")
                                     + result("second", 3, "plugin=\"encoder\" status=\"ok\">3</result>")));
    EXPECT_THAT(logText(), HasSubstr("NOTICE : plug-in encoder was reloaded\n"));
    EXPECT_THAT(logText(), HasSubstr("nimhost.plugin.calculator INFO : calculator of 12 types\n"));
}

TEST_F(NimhostRequestsTest, FailedReloadIsRetried)
{
    const NamedPipe first(scratch.file("first"));
    const NamedPipe second(scratch.file("second"));
    const NamedPipe third(scratch.file("third"));
    ChildProcess host = run(configure(), {first.name, second.name, third.name});
    const std::string asked = request("encoder", "operation='base64'><text>x</text>");
    first.write(asked);
    ASSERT_TRUE(waitFor([&] { return host.output().find("number=\"1\"") != std::string::npos; }));
    std::filesystem::rename(plugin("encoder"), plugin("hidden"));
    second.write("<requests><reload plugin='encoder'/></requests>");
    ASSERT_TRUE(waitFor([&] { return host.output().find("status=\"failed\"") != std::string::npos; }));
    std::filesystem::rename(plugin("hidden"), plugin("encoder"));
    third.write(asked);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.output(),
                HasSubstr(result("third", 1, "plugin=\"encoder\" status=\"ok\">eA==</result>")));
}

TEST_F(NimhostRequestsTest, SignalEndsTheWaitForADocument)
{
    const NamedPipe pipe(scratch.file("never"));
    ChildProcess host = run(configure(), {pipe.name});
    ASSERT_TRUE(waitFor([&] { return pipe.isRead(); }));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(), results("  <document name=\"" + pipe.name
                                     + "\" status=\"refused\">Interrupted system call</document>\n"));
    const std::string log = logText();
    EXPECT_THAT(log.substr(log.rfind("\n", log.size() - 2)), HasSubstr("nimhost is down: sources stopped"));
}

TEST_F(NimhostRequestsTest, SourcesRunConcurrentlyWithDocuments)
{
    const std::string path = document("d.xml", request("encoder", "operation='base64'><text>x</text>"));
    const std::string configuration =
        configure("/source/rate = 0\n/source/queue = 8\n/source/block = true\n/source/debug.every = 0\n"
                  "/source/fail.every = 0\n/source/break.after = 0\n");
    ChildProcess host(
        {NIMHOST_PROGRAM, "--config", configuration, "--threads", "2", "--records", "100", path},
        scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.output(), HasSubstr(">eA==</result>"));
    EXPECT_EQ(tableRow(host.errors(), "tasks run"), 101U);
    EXPECT_EQ(tableRow(host.errors(), "tasks with the wrong token"), 0U);
}

TEST_F(NimhostRequestsTest, FailedRequestsOfSourcesDoNotChangeTheExitStatusOfDocuments)
{
    const std::string path = document("d.xml", request("encoder", "operation='base64'><text>x</text>"));
    const std::string configuration =
        configure("/source/rate = 0\n/source/queue = 8\n/source/block = true\n/source/debug.every = 0\n"
                  "/source/fail.every = 10\n/source/break.after = 0\n");
    ChildProcess host(
        {NIMHOST_PROGRAM, "--config", configuration, "--threads", "1", "--records", "100", path},
        scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.errors(), "tasks that failed"), 10U);
}

TEST_F(NimhostRequestsTest, AdapterProvidesTheStreamCimom)
{
    const std::string path = document("d.xml", request("encoder", "operation='base64'><text>x</text>"));
    const std::string configuration =
        configure("host/adapters = cimom\ncimom/file = manager.log\n", "stream = CIMOM");
    ChildProcess host = run(configuration, {path});
    EXPECT_EQ(host.wait(), 0) << host.errors();
    const std::string log = readFile(scratch.file("manager.log"));
    EXPECT_THAT(log, HasSubstr("nimhost.plugin.encoder DEBUG : base64 gave 4 bytes\n"));
    EXPECT_THAT(log.substr(log.rfind("\n", log.size() - 2)), HasSubstr("nimhost is down: sources stopped"))
        << "the file outlives the adapter";
    EXPECT_FALSE(std::filesystem::exists(scratch.file("log/host.log")));
}

TEST_F(NimhostRequestsTest, AdapterWhoseFileCannotBeOpenedIsRejectedAtTheStart)
{
    const std::string path = scratch.file("none/none/manager.log");
    const std::string configuration =
        configure("host/adapters = cimom\ncimom/file = " + path + "\n", "stream = CIMOM");
    ChildProcess host = run(configuration, {"-"});
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "nimhost: adapter cimom: Bad log configuration: " + LOG + "file = \"" + path
                                 + "\" must be a path that can be opened, but " + path
                                 + ": No such file or directory\n");
}

TEST_F(NimhostRequestsTest, StreamCimomRequiresItsAdapter)
{
    const std::string configuration = configure("", "stream = CIMOM");
    ChildProcess without = run(configuration, {"-"});
    EXPECT_EQ(without.wait(), 2);
    EXPECT_EQ(without.errors(),
              "nimhost: " + configuration + ": Bad log configuration: " + LOG
                  + "stream = \"CIMOM\" must be available, but CIMOM stream is not available\n");

    configure("host/adapters = cimom\n", "stream = CIMOM");
    ChildProcess fileless = run(configuration, {"-"});
    EXPECT_EQ(fileless.wait(), 2);
    EXPECT_EQ(fileless.errors(), "nimhost: adapter cimom: the adapter requires the setting file\n");
}

TEST_F(NimhostRequestsTest, InvalidListOfPluginsIsRejected)
{
    const std::string configuration = configure("host/plugins = encoder ../matcher\n");
    ChildProcess host = run(configuration, {"-"});
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "nimhost: " + configuration
                                 + ": plugins of host must be a list of names, not \"encoder ../matcher\"\n");
}

TEST_F(NimhostRequestsTest, ExampleRequestsAreServed)
{
    std::vector<std::string> documents;
    for (const auto& entry : std::filesystem::directory_iterator(NIMHOST_REQUESTS)) {
        documents.push_back(entry.path());
    }
    ASSERT_EQ(documents.size(), 8U);
    ChildProcess host = run(configure(), documents);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(tableRow(host.errors(), "documents read"), 5U);
    EXPECT_EQ(tableRow(host.errors(), "documents rejected"), 3U);
    EXPECT_THAT(host.output(), HasSubstr("status=\"ok\">SGVsbG8sIHdvcmxkIQ==</result>"));
    EXPECT_THAT(host.output(), Not(HasSubstr("dropped")));
}

/** The script "run" serves these documents if it has no arguments, beside the sources. */
TEST_F(NimhostRequestsTest, DocumentsOfTheScriptRunFillTheSummary)
{
    const std::string sources =
        "/source/rate = 100\n/source/queue = 8\n/source/block = true\n/source/debug.every = 0\n"
        "/source/fail.every = 0\n/source/break.after = 0\n";
    const std::string requests = NIMHOST_REQUESTS;
    ChildProcess host = run(configure(sources), {"--threads", "4", "--seconds", "1", requests + "/encode.xml",
                                                 requests + "/reload.xml"});
    EXPECT_EQ(host.wait(), 0) << host.errors();
    EXPECT_EQ(tableRow(host.errors(), "documents read"), 2U);
    EXPECT_EQ(tableRow(host.errors(), "documents rejected"), 0U);
    EXPECT_EQ(tableRow(host.errors(), "documents dropped"), 0U);
    EXPECT_EQ(tableRow(host.errors(), "XML elements read"), 15U);
    EXPECT_EQ(tableRow(host.errors(), "plug-ins reloaded"), 1U);
    EXPECT_THAT(host.output(), Not(HasSubstr("failed")));
}
