#include <dalnim/io/Properties.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

typedef std::map<String, String> Table;

/** Sets the maximum number of open files of this process for a scope. */
class OpenFileLimit
{
public:
    explicit OpenFileLimit(rlim_t wanted)
    {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
        rlimit now = before;
        now.rlim_cur = std::min(wanted, before.rlim_max);
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &now));
        granted = now.rlim_cur;
    }
    ~OpenFileLimit()
    {
        setrlimit(RLIMIT_NOFILE, &before);
    }
    OpenFileLimit(const OpenFileLimit&) = delete;
    OpenFileLimit& operator=(const OpenFileLimit&) = delete;

    rlim_t granted = 0;

private:
    rlimit before = {};
};

std::ptrdiff_t openFiles()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

void runOnSmallStack(std::function<void()> work)
{
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &work));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    pthread_attr_destroy(&attributes);
}

class PropertiesInclude : public testing::Test
{
protected:
    PropertiesInclude()
    {
        char name[] = "/tmp/dalnim-include-XXXXXX";
        directory = String(mkdtemp(name)) + "/";
        EXPECT_EQ(0, chmod(directory.c_str(), 0755));
    }

    ~PropertiesInclude() override
    {
        std::filesystem::remove_all(directory);
    }

    void file(const String& name, const String& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(directory + name).parent_path());
        std::ofstream(directory + name) << text;
    }

    /** Writes files "0" to "<last>", each of which includes the next and then sets a property. */
    void chain(unsigned int last) const
    {
        for (unsigned int i = 0; i <= last; ++i) {
            const String number = std::to_string(i);
            std::ofstream out(directory + number);
            if (i < last) {
                out << "%pragma include \"" << i + 1 << "\"\n";
            }
            out << "key" << number << "=" << number << "\nlast=" << number << "\n";
        }
    }

    /** Loads a file of the test's directory under its own path. */
    Table load(const String& name, Properties::Severity sev = Properties::SEV_ERROR,
               bool keep_trailing_ws = false)
    {
        std::ifstream stream(directory + name);
        EXPECT_TRUE(stream.is_open());
        return loadText(stream, directory + name, sev, keep_trailing_ws);
    }

    Table loadText(std::istream& stream, const String& filepath,
                   Properties::Severity sev = Properties::SEV_ERROR, bool keep_trailing_ws = false)
    {
        std::ostringstream warning_stream;
        std::ostringstream notes;
        properties.load(stream, filepath, warning_stream, notes, sev, keep_trailing_ws);
        EXPECT_EQ("", notes.str());
        warnings = warning_stream.str();
        return Table(properties.begin(), properties.end());
    }

    Table loadText(const String& text, const String& filepath,
                   Properties::Severity sev = Properties::SEV_ERROR)
    {
        std::istringstream stream(text);
        return loadText(stream, filepath, sev);
    }

    /** Loads a file and returns the message of the std::runtime_error that it throws. */
    String failureOf(const String& name)
    {
        try {
            load(name);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "loaded";
    }

    String directory;
    Properties properties;
    String warnings;
};

TEST_F(PropertiesInclude, FileIsReadAtThePragma)
{
    file("a.conf", "x=1\ny=1\n%pragma include \"b.conf\"\nz=3\n");
    file("b.conf", "y=2\nz=2\nb=2");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "2"), Pair("x", "1"), Pair("y", "2"), Pair("z", "3")));
}

TEST_F(PropertiesInclude, SpacesAroundTheArgumentAreIgnored)
{
    file("a.conf", "  %pragma\t include \t \"b.conf\" \t\r\n");
    file("b.conf", "b=2");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "2")));
}

TEST_F(PropertiesInclude, PragmaDoesNotContinueLines)
{
    file("a.conf", "%pragma include \"b.conf\"\n  c=3\n");
    file("b.conf", "b=2 \\");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "2"), Pair("c", "3")));
}

TEST_F(PropertiesInclude, CycleEndsWithoutAMessage)
{
    file("a.conf", "%pragma include \"b.conf\"\nk=a\na=1\n");
    file("b.conf", "%pragma include \"a.conf\"\nk=b\nb=1\n");
    EXPECT_THAT(load("a.conf", Properties::SEV_NOTE),
                ElementsAre(Pair("a", "1"), Pair("b", "1"), Pair("k", "a")));
    EXPECT_EQ("WARNING: a.conf:2: Overriding property \"k\"\n", warnings);
}

TEST_F(PropertiesInclude, FileThatIncludesItselfIsReadOnce)
{
    file("a.conf", "%pragma include \"a.conf\"\na=1\n%pragma include \"a.conf\"\n");
    EXPECT_THAT(load("a.conf", Properties::SEV_NOTE), ElementsAre(Pair("a", "1")));
    EXPECT_EQ("", warnings);
}

TEST_F(PropertiesInclude, FileIncludedTwiceIsReadOnce)
{
    file("a.conf",
         "%pragma include \"c.conf\"\nc=changed\n%pragma include \"b.conf\"\n%pragma include \"c.conf\"\n");
    file("b.conf", "%pragma include \"c.conf\"\n");
    file("c.conf", "c=1\n");
    EXPECT_THAT(load("a.conf", Properties::SEV_NOTE), ElementsAre(Pair("c", "changed")));
}

TEST_F(PropertiesInclude, CycleThroughDifferentSpellingsEndsWithoutAMessage)
{
    file("a.conf", "%pragma include \"sub/b.conf\"\nk=a\na=1\n");
    file("sub/b.conf", "%pragma include \"../a.conf\"\n%pragma include \"./b.conf\"\nk=b\nb=1\n");
    for (const char* const name : {"a.conf", "./a.conf", "sub/../a.conf", "sub/.././a.conf"}) {
        EXPECT_THAT(load(name), ElementsAre(Pair("a", "1"), Pair("b", "1"), Pair("k", "a"))) << name;
    }

    Properties reported;
    std::ifstream stream(directory + "a.conf");
    std::ostringstream warning_stream;
    std::ostringstream notes;
    reported.load(stream, directory + "a.conf", warning_stream, notes, Properties::SEV_WARNING);
    EXPECT_EQ("WARNING: a.conf:2: Overriding property \"k\"\n", warning_stream.str());
}

TEST_F(PropertiesInclude, FileIncludedUnderAnotherSpellingIsReadOnce)
{
    file("sub/x.conf", "");
    file("a.conf", "%pragma include \"b.conf\"\nb=changed\n%pragma include \"./b.conf\"\n"
                   "%pragma include \"sub/../b.conf\"\n%pragma include \".//b.conf\"\n");
    file("b.conf", "b=1\n");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "changed")));
}

TEST_F(PropertiesInclude, FileIncludedThroughALinkIsReadOnce)
{
    file("a.conf", "%pragma include \"link.conf\"\nb=changed\n%pragma include \"b.conf\"\n"
                   "%pragma include \"other/b.conf\"\n");
    file("b.conf", "b=1\n%pragma include \"other/a.conf\"\n");
    std::filesystem::create_symlink("b.conf", directory + "link.conf");
    std::filesystem::create_directory_symlink(".", directory + "other");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "changed")));
}

TEST_F(PropertiesInclude, MessageContainsThePathAsSpelled)
{
    file("sub/b.conf", "%pragma include \"../sub/./missing.conf\"\n");
    file("a.conf", "%pragma include \"sub/../sub/b.conf\"\n");
    EXPECT_EQ("ERROR: b.conf:1: failed to open include file: \"" + directory
                  + "sub/../sub/../sub/./missing.conf\"",
              failureOf("a.conf"));
}

TEST_F(PropertiesInclude, RelativePathAndAbsolutePathAreOneFile)
{
    file("b.conf", "b=1\n");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory);
    const Table table =
        loadText("%pragma include \"b.conf\"\nb=2\n%pragma include \"" + directory + "b.conf\"\n", "a.conf");
    std::filesystem::current_path(before);
    EXPECT_THAT(table, ElementsAre(Pair("b", "2")));
}

TEST_F(PropertiesInclude, EachLoadReadsTheFileAgain)
{
    file("a.conf", "%pragma include \"b.conf\"\n");
    file("b.conf", "b=1\n");
    load("a.conf");
    file("b.conf", "b=2\n");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "2")));
}

TEST_F(PropertiesInclude, LoadAfterAFailureReadsTheFileAgain)
{
    file("a.conf", "%pragma include \"b.conf\"\n%pragma include \"bad.conf\"\n");
    file("b.conf", "b=1\n");
    file("bad.conf", "k=\\x\n");
    EXPECT_THROW(load("a.conf"), std::invalid_argument);
    EXPECT_EQ("1", properties.getProperty("b"));

    file("b.conf", "b=2\n");
    file("bad.conf", "k=\\x4\n");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "2"), Pair("k", "\x04")));
}

TEST_F(PropertiesInclude, PathIsRelativeToTheIncludingFile)
{
    file("main.conf", "%pragma include \"sub/one.conf\"\nmain=1\n");
    file("sub/one.conf", "%pragma include \"two.conf\"\n%pragma include \"deep/three.conf\"\none=1\n");
    file("sub/two.conf", "%pragma include \"../four.conf\"\ntwo=1\n");
    file("sub/deep/three.conf", "three=1\n");
    file("four.conf", "four=1\n");
    EXPECT_THAT(load("main.conf"), ElementsAre(Pair("four", "1"), Pair("main", "1"), Pair("one", "1"),
                                               Pair("three", "1"), Pair("two", "1")));
}

TEST_F(PropertiesInclude, LeadingSlashIsRelativeToo)
{
    file("b.conf", "b=outer\n");
    file("sub/a.conf", "%pragma include \"" + directory + "b.conf\"\n");
    file("sub" + directory + "b.conf", "b=inner\n");
    EXPECT_THAT(load("sub/a.conf"), ElementsAre(Pair("b", "inner")));
}

TEST_F(PropertiesInclude, WithoutADirectoryThePathIsUnchanged)
{
    file("b.conf", "b=1\n");
    const String text = "%pragma include \"" + directory + "b.conf\"\n";
    for (const char* const name : {"", "a.conf"}) {
        EXPECT_THAT(loadText(text, name), ElementsAre(Pair("b", "1"))) << name;
    }
    std::istringstream stream(text);
    EXPECT_EQ("1", Properties(stream).getProperty("b"));
}

TEST_F(PropertiesInclude, LoadedFileNeedNotExist)
{
    file("b.conf", "b=1\n");
    EXPECT_THAT(loadText("%pragma include \"b.conf\"", directory + "missing.conf"),
                ElementsAre(Pair("b", "1")));
}

TEST_F(PropertiesInclude, ArgumentHasNoEscapes)
{
    file("b\\u0041.conf", "b=1\n");
    file("it's-\"b\".conf", "c=1\n");
    file("\xff.conf", "d=1\n");
    file("a.conf", "%pragma include \"b\\u0041.conf\"\n%pragma include \"it's-\"b\".conf\"\n"
                   "%pragma include \"\xff.conf\"\n");
    EXPECT_THAT(load("a.conf"), ElementsAre(Pair("b", "1"), Pair("c", "1"), Pair("d", "1")));
}

TEST_F(PropertiesInclude, MissingFileThrows)
{
    file("a.conf", "\na=1\n%pragma include \"missing.conf\"\nb=1\n");
    EXPECT_EQ("ERROR: a.conf:3: failed to open include file: \"" + directory + "missing.conf\"",
              failureOf("a.conf"));
    EXPECT_EQ("1", properties.getProperty("a"));
    EXPECT_FALSE(properties.containsKey("b"));
}

TEST_F(PropertiesInclude, MessageNamesTheIncludingFile)
{
    file("a.conf", "%pragma include \"sub/b.conf\"\n");
    file("sub/b.conf", "%pragma include \"c.conf\"\n");
    EXPECT_EQ("ERROR: b.conf:1: failed to open include file: \"" + directory + "sub/c.conf\"",
              failureOf("a.conf"));

    file("sub/c.conf", "\n\nk=\\x\n");
    try {
        load("a.conf");
        ADD_FAILURE();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("ERROR: c.conf:3: End-of-line encountered in hex escape sequence.", e.what());
    }
}

TEST_F(PropertiesInclude, DirectoryCannotBeOpened)
{
    file("sub/b.conf", "");
    file("a.conf", "%pragma include \"sub\"\n");
    EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + directory + "sub\"", failureOf("a.conf"));
    file("a.conf", "%pragma include \"sub/\"\n");
    EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + directory + "sub/\"", failureOf("a.conf"));
    file("a.conf", "%pragma include \"\"\n");
    EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + directory + "\"", failureOf("a.conf"));
}

TEST_F(PropertiesInclude, EmptyPathInAnUnnamedStreamIsThatStream)
{
    EXPECT_THAT(loadText("%pragma include \"\"\na=1\n", ""), ElementsAre(Pair("a", "1")));
}

TEST_F(PropertiesInclude, NameWithAZeroByteCannotBeOpened)
{
    file("b", "b=1\n");
    file("a.conf", String("%pragma include \"b\0x\"\n", 22));
    EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + directory + "b", failureOf("a.conf"));
    EXPECT_TRUE(properties.empty());
}

TEST_F(PropertiesInclude, NameWithAZeroByteIsNotTheFileBeforeIt)
{
    file("b", "b=1\n");
    file("a.conf", String("%pragma include \"b\"\n%pragma include \"b\0x\"\n", 42));
    EXPECT_EQ("ERROR: a.conf:2: failed to open include file: \"" + directory + "b", failureOf("a.conf"));
}

TEST_F(PropertiesInclude, UnreadableFileCannotBeOpened)
{
    file("a.conf", "%pragma include \"secret.conf\"\n");
    file("secret.conf", "b=1\n");
    ASSERT_EQ(0, chmod((directory + "secret.conf").c_str(), 0));
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(0, seteuid(65534));
    }
    const String message = failureOf("a.conf");
    ASSERT_EQ(0, seteuid(user));
    EXPECT_EQ("ERROR: a.conf:1: failed to open include file: \"" + directory + "secret.conf\"", message);
}

TEST_F(PropertiesInclude, SeverityAppliesToTheFileAndItsIncludes)
{
    file("a.conf", "k=1\n%pragma severity warning\n%pragma include \"b.conf\"\nk=a\n");
    file("b.conf", "k=b\n%pragma severity error\nk=b\n%pragma include \"c.conf\"\n");
    file("c.conf", "k=c\n%pragma severity note\nk=c\n");
    load("a.conf", Properties::SEV_ERROR);
    EXPECT_EQ("WARNING: b.conf:1: Overriding property \"k\"\n"
              "WARNING: c.conf:3: Overriding property \"k\"\n"
              "WARNING: a.conf:4: Overriding property \"k\"\n",
              warnings);
}

TEST_F(PropertiesInclude, SeverityOfAnIncludedFileEndsWithIt)
{
    file("a.conf", "%pragma include \"b.conf\"\nk=2\n");
    file("b.conf", "%pragma severity warning\nk=1\n");
    load("a.conf", Properties::SEV_ERROR);
    EXPECT_EQ("", warnings);
}

TEST_F(PropertiesInclude, KeepTrailingWhiteSpaceAppliesToAllFiles)
{
    file("a.conf", "%pragma include \"b.conf\"\na=1 \n");
    file("b.conf", "b=1 \n");
    EXPECT_THAT(load("a.conf", Properties::SEV_ERROR, true), ElementsAre(Pair("a", "1 "), Pair("b", "1 ")));
}

TEST_F(PropertiesInclude, DeepChainUsesNoStack)
{
    OpenFileLimit limit(11000);
    const unsigned int last = static_cast<unsigned int>(std::min<rlim_t>(10000, limit.granted - 100));
    chain(last);

    Table table;
    runOnSmallStack([this, &table] {
        try {
            table = load("0");
        } catch (const std::exception& e) {
            ADD_FAILURE() << e.what();
        }
    });
    EXPECT_EQ(last + 2, table.size());
    EXPECT_EQ("0", table["last"]);
    EXPECT_EQ(std::to_string(last), table["key" + std::to_string(last)]);
}

TEST_F(PropertiesInclude, ChainBeyondTheDescriptorLimitThrows)
{
    chain(300);
    const std::ptrdiff_t before = openFiles();
    {
        const OpenFileLimit limit(128);
        EXPECT_THAT(failureOf("0"), testing::MatchesRegex("ERROR: [0-9]+:1: failed to open include file: \""
                                                          + directory + "[0-9]+\""));
    }
    EXPECT_EQ(before, openFiles());
    EXPECT_THAT(Table(properties.begin(), properties.end()), IsEmpty());
    EXPECT_EQ(302u, load("0").size());
    EXPECT_EQ(before, openFiles());
}

}
