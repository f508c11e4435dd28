#include <dalnim/log/Write.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

using namespace logtest;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using testing::EndsWith;

constexpr char CIMOM_MODULE[] = "com_kor_dal_nim_log_module_CIMOM";

/** The default logger, and a component that offers its own logger under the name "CIMOM". */
class CimomStream : public testing::Test
{
protected:
    CimomStream() : path(folder / "cimom.log"), module(CIMOM_MODULE, owner)
    {
        owner.setPath(path);
        owner.setOutputMask(log::Mask_SEVERITY);
        owner.setMaxFileSize(100000);
        owner.setMaxNumberOfFiles(5);
        logger->registerModule(module);
    }
    ~CimomStream() override
    {
        logger->unregisterModule(module);
    }

    String written()
    {
        const String text = contentOf(path);
        const String fresh = text.substr(read);
        read = text.size();
        return fresh;
    }

    const Folder folder;
    const String path;
    std::size_t read = 0;
    Write owner;
    Module module;
    DefaultLogger logger;
};

TEST_F(CimomStream, SharesTheFileOfTheOtherLogger)
{
    logger->setStream("CIMOM");
    const String text = written();
    EXPECT_EQ("\tOutputPath:   \"" + path
                  + "\"\n"
                    "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                    "\tSeverityMin:  NOTICE\n"
                    "\tModuleFilter: *\n"
                  + changed("OutputStream", "\"<user assigned stream>\"", '"' + path + '"'),
              behindFirstLine(text));
    EXPECT_EQ(path, logger->getPath());
    writeError(logger.write(), "mine");
    writeError(owner, "its own");
    EXPECT_EQ("global ERROR Source : mine\nERROR : its own\n", written());
    EXPECT_EQ(owner.getStream(), logger->getStream());
    EXPECT_EQ("", logger.taken());
}

TEST_F(CimomStream, SettingItAgainChangesNothing)
{
    logger->setStream("CIMOM");
    written();
    logger->setStream("CIMOM");
    EXPECT_EQ("", written());
}

TEST_F(CimomStream, FileSettingsOfTheUserAreIgnored)
{
    logger->setStream("CIMOM");
    written();
    logger->setMaxFileSize(70000);
    logger->setMaxNumberOfFiles(8);
    EXPECT_EQ("", written()) << "no report";
    EXPECT_EQ(100000u, owner.getMaxFileSize());
    EXPECT_EQ(5u, owner.getMaxNumberOfFiles());
    EXPECT_EQ(100000u, logger->getMaxFileSize()) << "of the shared file";
    EXPECT_EQ(5u, logger->getMaxNumberOfFiles());
    owner.setMaxFileSize(200000);
    EXPECT_EQ(200000u, logger->getMaxFileSize());
}

TEST_F(CimomStream, SettingAPathEndsTheSharing)
{
    logger->setStream("CIMOM");
    written();
    logger->setPath(folder / "own.log");
    EXPECT_THAT(contentOf(folder / "own.log"),
                EndsWith(changed("OutputPath", "\"STDERR\"", '"' + (folder / "own.log") + '"')));
    writeError(owner, "its own");
    EXPECT_EQ("ERROR : its own\n", written()) << "the other logger is untouched";
    EXPECT_EQ(path, owner.getPath());
    logger->setMaxFileSize(70000);
    EXPECT_EQ(70000u, logger->getMaxFileSize());
    EXPECT_EQ(100000u, owner.getMaxFileSize());
    logger->setMaxFileSize(0);
}

TEST_F(CimomStream, SettingAStreamEndsTheSharing)
{
    logger->setStream("CIMOM");
    written();
    Captured out(std::cout);
    logger->setStream("STDOUT");
    EXPECT_THAT(out.taken(), EndsWith(changed("OutputStream", "\"STDERR\"", "\"STDOUT\"")));
    writeError(owner, "its own");
    EXPECT_EQ("ERROR : its own\n", written());
    logger->setStream("CIMOM");
    written();
    logger->setStream(asIos(logger.sink));
    writeError(logger.write(), "text");
    EXPECT_THAT(logger.taken(), EndsWith("global ERROR Source : text\n"));
    writeError(owner, "its own");
    EXPECT_EQ("ERROR : its own\n", written());
}

TEST_F(CimomStream, RejectedStreamKeepsTheSharing)
{
    logger->setStream("CIMOM");
    std::istringstream input;
    EXPECT_THROW(logger->setStream(input), std::invalid_argument);
    EXPECT_THROW(logger->setStream("other"), std::out_of_range);
    EXPECT_EQ(path, logger->getPath());
    EXPECT_EQ(owner.getStream(), logger->getStream());
}

TEST_F(CimomStream, FileOutlivesItsOwner)
{
    auto shortLived = std::make_unique<Write>();
    shortLived->setPath(folder / "short.log");
    Write borrower;
    borrower.setOutputMask(log::Mask_SEVERITY);
    {
        const Module its(CIMOM_MODULE, *shortLived);
        borrower.registerModule(its);
        borrower.setStream("CIMOM");
        borrower.unregisterModule(its);
    }
    shortLived.reset();
    writeError(borrower, "text");
    EXPECT_EQ("ERROR : text\n", contentOf(folder / "short.log"));
}

TEST_F(CimomStream, ClosesTheFileThatItReplaces)
{
    logger->setPath(folder / "own.log");
    std::ios* const before = logger->getStream();
    ASSERT_NE(nullptr, before);
    logger->setStream("CIMOM");
    EXPECT_THAT(written(),
                EndsWith(changed("OutputStream", '"' + (folder / "own.log") + '"', '"' + path + '"')));
    writeError(logger.write(), "text");
    EXPECT_THAT(contentOf(folder / "own.log"), testing::Not(testing::HasSubstr("text")));
}

/** A logger that starts to share a second file closes the first one, even if that is shared as well. */
TEST_F(CimomStream, ClosesASharedFileThatItReplaces)
{
    OwnLogger second;
    const Module its(CIMOM_MODULE, second.write);
    Write borrower;
    borrower.registerModule(module);
    borrower.setStream("CIMOM");
    borrower.unregisterModule(module);
    borrower.registerModule(its);
    borrower.setStream("CIMOM");
    EXPECT_EQ(&asIos(second.sink), borrower.getStream());
    EXPECT_EQ("", owner.getPath());
    EXPECT_EQ(&asIos(std::cerr), owner.getStream());
}

TEST_F(CimomStream, OfTheLoggerItselfChangesNothing)
{
    OwnLogger own;
    const Module its(CIMOM_MODULE, own.write);
    own.write.setStream("CIMOM");
    EXPECT_EQ(&asIos(own.sink), own.write.getStream());
    own.write.setMaxFileSize(3);
    EXPECT_EQ(3u, own.write.getMaxFileSize()) << "nothing is shared";
}

TEST(CimomStreamMissing, Throws)
{
    DefaultLogger logger;
    EXPECT_EQ("CIMOM stream is not available",
              textOf<std::invalid_argument>([&] { logger->setStream("CIMOM"); }));
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(&asIos(logger.sink), logger->getStream());
}

TEST(CimomStreamMissing, ThrowsForALoggerThatIsNotAWrite)
{
    PlainLog plain;
    const Module module(CIMOM_MODULE, plain);
    OwnLogger logger;
    logger.write.registerModule(module);
    EXPECT_EQ("CIMOM stream is not available",
              textOf<std::invalid_argument>([&] { logger.write.setStream("CIMOM"); }));
    EXPECT_EQ(&asIos(logger.sink), logger.write.getStream());
}

}
