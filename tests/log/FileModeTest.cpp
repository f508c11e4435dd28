#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

#include <sys/stat.h>

namespace {

using namespace logtest;
using log::Control;
using log::Write;
using logfiletest::Folder;

/** Sets the umask of this process until the end of the scope. */
class Umask
{
public:
    explicit Umask(mode_t mask) : before(::umask(mask)) {}
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    ~Umask()
    {
        ::umask(before);
    }

private:
    const mode_t before;
};

mode_t modeOf(const String& path)
{
    struct stat info = {};
    EXPECT_EQ(0, ::stat(path.c_str(), &info)) << path;
    return info.st_mode & 07777;
}

TEST(FileMode, IsThatOfTheUmaskInitially)
{
    const Folder folder;
    const Umask umask(027);
    Write logger;
    EXPECT_EQ(Control::MODE_OF_UMASK, logger.getFileMode());
    logger.setPath(folder / "a.log");
    writeError(logger, "text");
    EXPECT_EQ(0640u, modeOf(folder / "a.log"));
}

TEST(FileMode, OfANewFileIsIndependentOfTheUmask)
{
    const Folder folder;
    const Umask umask(077);
    Write logger;
    logger.setFileMode(0664);
    EXPECT_EQ(0664u, logger.getFileMode());
    logger.setPath(folder / "a.log");
    writeError(logger, "text");
    EXPECT_EQ(0664u, modeOf(folder / "a.log"));
    const Umask none(0);
    logger.setFileMode(0600);
    logger.setPath(folder / "b.log");
    writeError(logger, "text");
    EXPECT_EQ(0600u, modeOf(folder / "b.log"));
}

TEST(FileMode, OfAnExistingFileIsUnchanged)
{
    const Folder folder;
    logfiletest::create(folder / "a.log", "old\n");
    ASSERT_EQ(0, ::chmod((folder / "a.log").c_str(), 0604));
    Write logger;
    logger.setFileMode(0640);
    logger.setOutputMask(0);
    logger.setPath(folder / "a.log");
    writeError(logger, "text");
    EXPECT_EQ(0604u, modeOf(folder / "a.log"));
    EXPECT_EQ("old\n : text\n", logfiletest::contentOf(folder / "a.log"));
}

TEST(FileMode, AppliesToTheFileThatARotationOpens)
{
    const Folder folder;
    const Umask umask(0);
    logfiletest::CapturedCerr err;
    Write logger;
    logger.setPath(folder / "a.log");
    logger.setMaxFileSize(1);
    logger.setFileMode(0640);
    logger.setMaxFileSize(0);
    writeError(logger, "opens the first one");
    logger.setFileMode(0600);
    logger.setMaxFileSize(1);
    writeError(logger, "rotates");
    EXPECT_EQ(0640u, modeOf(folder / "a.log.0"));
    EXPECT_EQ(0600u, modeOf(folder / "a.log"));
}

TEST(FileMode, AppliesToTheTargetOfADanglingLink)
{
    const Folder folder;
    std::filesystem::create_symlink(folder / "target.log", folder / "a.log");
    Write logger;
    logger.setFileMode(0600);
    logger.setPath(folder / "a.log");
    writeError(logger, "text");
    EXPECT_EQ(0600u, modeOf(folder / "target.log"));
}

TEST(FileMode, AppliesAgainAfterASharedFile)
{
    const Folder folder;
    const Umask umask(0);
    OwnLogger owner;
    const log::Module module("com_kor_dal_nim_log_module_CIMOM", owner.write);
    Write logger;
    logger.setFileMode(0640);
    logger.registerModule(module);
    logger.setStream("CIMOM");
    logger.unregisterModule(module);
    logger.setFileMode(0620);
    EXPECT_EQ(Control::MODE_OF_UMASK, owner.write.getFileMode());
    logger.setPath(folder / "a.log");
    writeError(logger, "text");
    EXPECT_EQ(0620u, modeOf(folder / "a.log"));
}

TEST(FileMode, ThrowsIfTheOwnerCouldNotWriteOrAboveThePermissions)
{
    Write logger;
    for (const unsigned int mode : {0u, 0444u, 01000u, 04755u, 0xFFFFFFFEu}) {
        EXPECT_EQ("Illegal File Mode", textOf<std::out_of_range>([&] { logger.setFileMode(mode); })) << mode;
    }
    EXPECT_EQ(Control::MODE_OF_UMASK, logger.getFileMode());
    logger.setFileMode(0200);
    logger.setFileMode(0777);
    logger.setFileMode(Control::MODE_OF_UMASK);
}

TEST(FileMode, IsReportedInOctal)
{
    DefaultLogger logger;
    logger->setFileMode(0640);
    logger->setFileMode(0640);
    logger->setFileMode(Control::MODE_OF_UMASK);
    EXPECT_EQ(changed("FileMode", "\"umask\"", "\"0640\"") + changed("FileMode", "\"0640\"", "\"umask\""),
              logger.taken());
}

TEST(FileMode, IsAKeyOfTheConfigurationInOctal)
{
    constexpr char KEY[] = "com.kor.dal.nim.log.Control.file.mode";
    Write logger;
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty(KEY, "0640");
    logger.setConfiguration(settings);
    EXPECT_EQ(0640u, logger.getFileMode());
    settings.setProperty(KEY, "600");
    logger.setConfiguration(settings);
    EXPECT_EQ(0600u, logger.getFileMode());
    logger.setConfiguration(com::kor::dal::nim::io::Properties());
    EXPECT_EQ(0600u, logger.getFileMode());
    for (const char* const bad : {"rw-r-----", "0690", "0640 ", "-0640", "01777", "0440", "37777777777"}) {
        settings.setProperty(KEY, bad);
        EXPECT_EQ("Illegal File Mode", textOf<std::out_of_range>([&] { logger.setConfiguration(settings); }))
            << bad;
    }
}

TEST(FileMode, ThrowsForALoggerThatIsNotAWrite)
{
    PlainLog logger;
    EXPECT_EQ(Control::MODE_OF_UMASK, logger.getFileMode());
    EXPECT_THROW(logger.setFileMode(0640), std::bad_cast);
}

}
