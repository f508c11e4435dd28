#include "LogFileFixture.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>

#include <stdexcept>
#include <type_traits>

#include <fcntl.h>

namespace {

using namespace logfiletest;
using com::kor::dal::nim::mem::RefCntObject;
using testing::ElementsAre;
using testing::StartsWith;

static_assert(std::is_base_of_v<RefCntObject, LogFile>);
static_assert(std::has_virtual_destructor_v<LogFile>);

class LogFileTest : public LogFileFixture
{
protected:
    /** is_open(), is_valid() and is_reserved(), as in "open valid". */
    String state() const
    {
        String text;
        text += file->is_open() ? "open " : "";
        text += file->is_valid() ? "valid " : "";
        text += file->is_reserved() ? "reserved " : "";
        return text.empty() ? text : text.substr(0, text.size() - 1);
    }

    /** The descriptor of this process that is open on `path`, or -1. */
    static int descriptorOf(const String& path)
    {
        const std::filesystem::path file = std::filesystem::weakly_canonical(path);
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry.path(), gone) == file) {
                return std::stoi(entry.path().filename());
            }
        }
        return -1;
    }

    /** Brings the file into one of its five states. */
    void enter(const String& name)
    {
        if (name == "standard error") {
            file->revertStream();
        } else if (name == "unopened") {
            file->setPath(path);
        } else if (name == "closed") {
            file->close();
        } else if (name == "file open") {
            file->setPath(path);
            file->log("line");
        } else {
            file->setStream(foreign);
        }
        err.take();
    }

    std::ostringstream foreign;
};

// ---- the states -----------------------------------------------------------------------------

TEST_F(LogFileTest, NewObjectIsStandardErrorAtRest)
{
    EXPECT_EQ("", file->getPath());
    EXPECT_EQ(&std::cerr, file->getStream());
    EXPECT_EQ(0u, file->getMaxFileSize());
    EXPECT_EQ(0u, file->getMaxNumberOfFiles());
    EXPECT_EQ("open valid reserved", state());
    EXPECT_EQ("STDERR", displayName(false));
    EXPECT_EQ("STDERR", displayName(true));
    EXPECT_STREQ("LogFile", LogFile::CLASS_NAME);
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileTest, PathIsUnopenedUntilTheFirstLine)
{
    file->setPath(path);

    EXPECT_EQ(path, file->getPath());
    EXPECT_EQ("", state());
    EXPECT_EQ(path, displayName(false));
    EXPECT_EQ(path, displayName(true));
    EXPECT_FALSE(exists(path));
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileTest, FirstLineOpensTheFile)
{
    file->setPath(path);
    file->log("first");

    EXPECT_EQ("first\n", contentOf(path));
    EXPECT_EQ(path, file->getPath());
    EXPECT_EQ("open valid", state());
    EXPECT_EQ(path, displayName());
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileTest, StreamOfAFileIsAnOpenFileStream)
{
    file->setPath(path);
    std::ostream* const stream = file->getStream();

    EXPECT_TRUE(exists(path));
    EXPECT_EQ("open valid", state());
    auto* const opened = dynamic_cast<std::ofstream*>(stream);
    ASSERT_NE(nullptr, opened);
    EXPECT_TRUE(opened->is_open());
    EXPECT_EQ(stream, file->getStream());

    *stream << "by hand" << std::endl;
    file->log("a line");
    EXPECT_EQ("by hand\na line\n", contentOf(path));
}

TEST_F(LogFileTest, ClosedWithoutPathBecomesStandardErrorAtTheNextLine)
{
    file->setPath(path);
    file->log("in the file");
    file->close();

    EXPECT_EQ("", file->getPath());
    EXPECT_EQ("", state());
    EXPECT_EQ("<not set>", displayName(false));
    EXPECT_EQ("<not set>", displayName(true));
    EXPECT_EQ(-1, descriptorOf(path));
    EXPECT_EQ("", err.take());

    file->log("elsewhere");
    EXPECT_EQ("elsewhere\n", err.take());
    EXPECT_EQ("open valid reserved", state());
    EXPECT_EQ("STDERR", displayName());
    EXPECT_EQ("in the file\n", contentOf(path));
}

TEST_F(LogFileTest, StreamOfAClosedOneIsStandardError)
{
    file->close();
    EXPECT_EQ(&std::cerr, file->getStream());
    EXPECT_EQ("STDERR", displayName());
}

TEST_F(LogFileTest, EmptyPathCloses)
{
    file->setPath(path);
    file->log("in the file");
    file->setPath("");

    EXPECT_EQ("", file->getPath());
    EXPECT_EQ("", state());
    EXPECT_EQ("<not set>", displayName());
    EXPECT_EQ(-1, descriptorOf(path));
}

TEST_F(LogFileTest, StreamOfTheCallerReceivesLinesAndIsNotDestroyed)
{
    file->setStream(foreign);

    EXPECT_EQ("", file->getPath());
    EXPECT_EQ(&foreign, file->getStream());
    EXPECT_EQ("open valid reserved", state());
    EXPECT_EQ("<user assigned stream>", displayName(false));
    EXPECT_EQ("<user assigned stream>", displayName(true));

    file->log("one");
    file->log("two");
    EXPECT_EQ("one\ntwo\n", foreign.str());

    file->close();
    foreign << "still usable";
    EXPECT_EQ("one\ntwo\nstill usable", foreign.str());
}

TEST_F(LogFileTest, StandardStreamsHaveNames)
{
    file->setStream(std::cout);
    EXPECT_EQ("STDOUT", displayName());
    EXPECT_EQ("open valid reserved", state());
    file->setStream(std::clog);
    EXPECT_EQ("STDLOG", displayName());
    file->setStream(std::cerr);
    EXPECT_EQ("STDERR", displayName());
}

TEST_F(LogFileTest, EveryStateLeadsToEveryOther)
{
    const struct
    {
        const char* name;
        const char* state;
        String path;
        String display;
    } states[] = {
        {"standard error", "open valid reserved", "", "STDERR"},
        {"unopened", "", path, path},
        {"closed", "", "", "<not set>"},
        {"file open", "open valid", path, path},
        {"foreign", "open valid reserved", "", "<user assigned stream>"},
    };
    for (const auto& from : states) {
        for (const auto& to : states) {
            SCOPED_TRACE(String(from.name) + " -> " + to.name);
            enter(from.name);
            enter(to.name);
            EXPECT_EQ(to.state, state());
            EXPECT_EQ(to.path, file->getPath());
            EXPECT_EQ(to.display, displayName());
            EXPECT_EQ(String(to.name) == "file open", descriptorOf(path) != -1);
        }
    }
}

TEST_F(LogFileTest, DestructionClosesTheFileAndNotAForeignStream)
{
    file->setPath(path);
    file->log("line");
    EXPECT_NE(-1, descriptorOf(path));
    file = LogFileRef(new LogFile);
    EXPECT_EQ(-1, descriptorOf(path));

    file->setStream(foreign);
    file = LogFileRef(new LogFile);
    foreign << "alive";
    EXPECT_EQ("alive", foreign.str());
}

TEST_F(LogFileTest, LimitsSurviveEveryChangeOfTheOutput)
{
    file->setMaxFileSize(1000);
    file->setMaxNumberOfFiles(7);
    for (const char* const name : {"unopened", "file open", "closed", "foreign", "standard error"}) {
        enter(name);
        EXPECT_EQ(1000u, file->getMaxFileSize()) << name;
        EXPECT_EQ(7u, file->getMaxNumberOfFiles()) << name;
    }
}

TEST_F(LogFileTest, NewPathClosesTheOldFile)
{
    file->setPath(path);
    file->log("one");
    file->setPath(folder / "other");
    EXPECT_EQ(-1, descriptorOf(path));
    file->log("two");

    EXPECT_EQ("one\n", contentOf(path));
    EXPECT_EQ("two\n", contentOf(folder / "other"));
}

// ---- setStream and revertStream -------------------------------------------------------------

TEST_F(LogFileTest, InputStreamIsRejectedAndChangesNothing)
{
    file->setPath(path);
    file->log("one");
    std::istringstream input;
    try {
        file->setStream(input);
        FAIL() << "taken";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("Supplied std::ios is not a std::ostream.", error.what());
    }
    EXPECT_EQ(path, file->getPath());
    file->log("two");
    EXPECT_EQ("one\ntwo\n", contentOf(path));
}

TEST_F(LogFileTest, StreamForInputAndOutputIsAccepted)
{
    std::stringstream both;
    file->setStream(both);
    file->log("text");
    EXPECT_EQ("text\n", both.str());
}

TEST_F(LogFileTest, RevertOnStandardErrorChangesNothing)
{
    EXPECT_FALSE(file->revertStream());
    EXPECT_EQ("open valid reserved", state());
    EXPECT_EQ("STDERR", displayName());

    file->setStream(std::cerr);
    EXPECT_FALSE(file->revertStream());
}

TEST_F(LogFileTest, RevertClearsThePath)
{
    for (const char* const name : {"unopened", "closed", "file open", "foreign"}) {
        SCOPED_TRACE(name);
        enter(name);
        EXPECT_TRUE(file->revertStream());
        EXPECT_EQ("", file->getPath());
        EXPECT_EQ(&std::cerr, file->getStream());
        EXPECT_EQ("STDERR", displayName());
        EXPECT_EQ(-1, descriptorOf(path));
        EXPECT_FALSE(file->revertStream());
    }
    file->log("here");
    EXPECT_EQ("here\n", err.take());
}

// ---- opening --------------------------------------------------------------------------------

TEST_F(LogFileTest, ExistingFileIsExtended)
{
    create(path, "before\n");
    file->setPath(path);
    file->log("after");
    EXPECT_EQ("before\nafter\n", contentOf(path));
}

TEST_F(LogFileTest, LinesAreAppendedAlsoAfterAnotherWriter)
{
    file->setPath(path);
    file->log("one");
    std::ofstream(path, std::ios_base::app) << "somebody\n";
    file->log("two");
    EXPECT_EQ("one\nsomebody\ntwo\n", contentOf(path));
}

TEST_F(LogFileTest, MissingDirectoryIsCreated)
{
    const mode_t mask = ::umask(0);
    file->setPath(folder / "new/server.log");
    EXPECT_FALSE(exists(folder / "new"));
    file->log("line");
    ::umask(mask);

    EXPECT_EQ("line\n", contentOf(folder / "new/server.log"));
    struct stat info;
    ASSERT_EQ(0, ::stat((folder / "new").c_str(), &info));
    EXPECT_EQ(0755u, info.st_mode & 07777u);
    ASSERT_EQ(0, ::stat((folder / "new/server.log").c_str(), &info));
    EXPECT_EQ(0666u, info.st_mode & 07777u);
    EXPECT_EQ("", err.take());
}

TEST_F(LogFileTest, NameWithoutADirectoryIsInTheWorkingDirectory)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    create(folder / "bare.log.0", "");
    file->setPath("bare.log");
    EXPECT_EQ("LogFile:#:countLogFiles(): Found file [bare.log.0]\n", err.take());
    file->setMaxFileSize(1);
    file->log("line");
    std::filesystem::current_path(before);

    EXPECT_THAT(namesIn(folder.path()), ElementsAre("bare.log", "bare.log.0", "bare.log.1"));
    EXPECT_EQ("line\n", contentOf(folder / "bare.log.0"));
}

TEST_F(LogFileTest, WildcardCharactersInThePathAreLiteral)
{
    std::filesystem::create_directory(folder / "d*[a]");
    const String odd = folder / "d*[a]/a*b[1]?<2>\\c.log";
    for (const char* const decoy :
         {"aXb1Y2c.log.0", "aXb1Y7c.log.1", "ab1?<2>\\c.log.2", "a*b1?<2>c.log.3"}) {
        create(folder / "d*[a]/" + decoy, "");
    }
    create(odd + ".0", "old\n");
    file->setPath(odd);
    EXPECT_EQ("LogFile:#:countLogFiles(): Found file [" + odd + ".0]\n", err.take());

    file->setMaxFileSize(1);
    file->log("line");
    EXPECT_EQ("", contentOf(odd));
    EXPECT_EQ("line\n", contentOf(odd + ".0"));
    EXPECT_EQ("old\n", contentOf(odd + ".1"));
}

TEST_F(LogFileTest, DescriptorIsNotInherited)
{
    const auto closesOnExec = [this] {
        const int descriptor = descriptorOf(path);
        return descriptor != -1 && (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
    };
    open(10);
    file->log("short");
    EXPECT_TRUE(closesOnExec());
    file->log("rotates");
    EXPECT_TRUE(exists(old(0)));
    EXPECT_TRUE(closesOnExec());
}

TEST_F(LogFileTest, OpenedForAppendingAlsoAfterARotation)
{
    const auto appends = [this] {
        const int descriptor = descriptorOf(path);
        return descriptor != -1 && (::fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
    };
    open(10);
    file->log("short");
    EXPECT_TRUE(appends());
    file->log("rotates");
    EXPECT_TRUE(exists(old(0)));
    EXPECT_TRUE(appends());
}

}
