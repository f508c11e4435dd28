#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/SysError.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"
#include "support/Valgrind.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <initializer_list>
#include <stdexcept>
#include <thread>
#include <typeinfo>
#include <utility>

#include <sys/stat.h>

namespace {

using namespace logtest;
using com::kor::dal::nim::io::Properties;
using com::kor::dal::nim::sys::system_error;
using log::Control;
using log::Module;
using log::Write;
using logfiletest::AsNobody;
using logfiletest::contentOf;
using logfiletest::exists;
using logfiletest::Folder;
using logfiletest::Limit;
using testing::EndsWith;
using testing::HasSubstr;

constexpr char PREFIX[] = "com.kor.dal.nim.log.Control.";
constexpr char CIMOM_MODULE[] = "com_kor_dal_nim_log_module_CIMOM";

/** A table of the log's settings. */
struct Settings : Properties
{
    Settings(std::initializer_list<std::pair<const char*, String>> settings)
    {
        for (const auto& setting : settings) {
            setProperty(String(PREFIX) + setting.first, setting.second);
        }
    }
};

/** Returns the message of the exception that reconfigure() throws for these settings. */
String refusal(Control& logger, const Settings& settings)
{
    return textOf<std::invalid_argument>([&] { logger.reconfigure(settings); });
}

/** Returns all settings of a logger in one string. */
String stateOf(const Write& logger)
{
    std::ostringstream state;
    state << logger.getPath() << '|' << logger.getSeverity() << '|' << logger.getOutputMask() << '|';
    for (const log::Severity severity : maskOf(logger)) {
        state << severity << ',';
    }
    for (const String& entry : filterOf(logger)) {
        state << '|' << entry;
    }
    state << '|' << logger.getLocaltime() << logger.remoteControlAllowed() << logger.getEscapeControls()
          << logger.getFallback() << logger.getPriorityPrefix() << '|'
          << log::getTimeFormatName(logger.getTimeFormat()) << '|' << logger.getFileMode() << '|'
          << logger.getMaxFileSize() << '|' << logger.getMaxNumberOfFiles();
    return state.str();
}

TEST(Reconfigure, ReplacesEverySetting)
{
    const Folder folder;
    Write logger;
    logger.setModuleFilter("old", true);
    logger.setSeverityMask(log::Severity_FATAL, true);
    logger.reconfigure(Settings{{"file", folder / "a.log"},
                                {"localtime", "TRUE"},
                                {"timeFormat", "UTC_MS"},
                                {"severity.mask", "ERROR  DEBUG\tNONE"},
                                {"severity.id", "TRACE"},
                                {"output.mask", "SEVERITY LINENUMBER"},
                                {"modules", "b a.* b"},
                                {"remote.enable", "true"},
                                {"escape.enable", "true"},
                                {"fallback.enable", "true"},
                                {"priorityPrefix", "True"},
                                {"file.mode", "0640"},
                                {"maxNumberOfFiles", "5"},
                                {"maxFileSize", "1000000"}});
    const String state = stateOf(logger);
    EXPECT_TRUE(logger.setLocaltime(false));
    EXPECT_TRUE(logger.setPriorityPrefix(false));
    EXPECT_EQ((folder / "a.log") + "|2|516|2,6,|b|a.*|11111|UTC_MS|416|1000000|5", state);
    EXPECT_TRUE(exists(folder / "a.log")) << "opened before the first record";
}

TEST(Reconfigure, AbsentSettingsReturnToTheirDefaults)
{
    const Folder folder;
    Write logger;
    const String fresh = stateOf(logger);
    logger.reconfigure(Settings{{"file", folder / "a.log"},
                                {"localtime", "true"},
                                {"timeFormat", "OFFSET_US"},
                                {"severity.mask", "ERROR"},
                                {"output.mask", "SEVERITY"},
                                {"modules", "a"},
                                {"remote.enable", "true"},
                                {"escape.enable", "true"},
                                {"fallback.enable", "true"},
                                {"priorityPrefix", "true"},
                                {"file.mode", "0640"},
                                {"maxNumberOfFiles", "5"},
                                {"maxFileSize", "10"}});
    logger.reconfigure(Properties());
    EXPECT_EQ(fresh, stateOf(logger));
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
}

TEST(Reconfigure, TreatsAnEmptyValueAsAbsent)
{
    Write logger;
    const String fresh = stateOf(logger);
    logger.setSeverity(log::Severity_TRACE);
    logger.setMaxFileSize(10);
    logger.reconfigure(Settings{{"severity.id", ""}, {"maxFileSize", ""}, {"file", ""}, {"localtime", ""}});
    EXPECT_EQ(fresh, stateOf(logger));
}

TEST(Reconfigure, IgnoresKeysOutsideOfItsPrefix)
{
    Write logger;
    Properties settings;
    settings.setProperty("com.kor.dal.nim.log.control.severity.id", "DEBUG");
    settings.setProperty("host/plugins", "a");
    settings.setProperty(String(PREFIX) + "severity.id", "WARNING");
    logger.reconfigure(settings);
    EXPECT_EQ(log::Severity_WARNING, logger.getSeverity());
}

TEST(Reconfigure, SeverityMaskOfNoneLetsAllRecordsPass)
{
    Write logger;
    logger.reconfigure(Settings{{"severity.mask", "NONE"}});
    EXPECT_EQ(log::Severity_NONE, logger.getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_TRACE));
}

TEST(Reconfigure, AcceptsSizesWithUnits)
{
    const std::pair<const char*, std::size_t> sizes[] = {
        {"0", 0},
        {"10485760", 10485760},
        {"64k", 64000},
        {"3M", 3000000},
        {"2G", 2000000000},
        {"64KiB", 65536},
        {"10MiB", 10485760},
        {"1GiB", 1073741824},
        {"18446744073709551615", ~std::size_t(0)},
    };
    for (const auto& [text, size] : sizes) {
        Write logger;
        logger.reconfigure(Settings{{"maxFileSize", text}});
        EXPECT_EQ(size, logger.getMaxFileSize()) << text;
    }
}

TEST(Reconfigure, RejectsSizesThatTheSetterReadsInPart)
{
    for (const char* const size : {"10 MB", "10MB", "ten", "-5", "+5", "0x10", "1,000", "1.5G", " 10", "10 ",
                                   "10 KiB", "kib", "k", "18446744073709551616", "18014398509481984KiB"}) {
        Write logger;
        EXPECT_EQ("Bad log configuration: com.kor.dal.nim.log.Control.maxFileSize = \"" + String(size)
                      + "\" must be a decimal number of bytes, or one directly followed by k, M, G, KiB, MiB "
                        "or GiB",
                  refusal(logger, Settings{{"maxFileSize", size}}));
        EXPECT_EQ(0u, logger.getMaxFileSize());
    }
    Write logger;
    for (const char* const number : {"5k", "five", "-1", "5 6", ""}) {
        EXPECT_EQ(*number == 0 ? "nothing"
                               : "Bad log configuration: com.kor.dal.nim.log.Control.maxNumberOfFiles = \""
                                     + String(number) + "\" must be a decimal number",
                  refusal(logger, Settings{{"maxNumberOfFiles", number}}));
    }
}

TEST(Reconfigure, RejectsEachBadValueAndNamesTheAllowedOnes)
{
    const struct
    {
        const char* key;
        const char* value;
        const char* allowed;
    } cases[] = {
        {"stream", "other", "STDERR, STDOUT, STDLOG or CIMOM"},
        {"stream", "stderr", "STDERR, STDOUT, STDLOG or CIMOM"},
        {"localtime", "yes", "true or false"},
        {"localtime", "true ", "true or false"},
        {"timeFormat", "utc", "one of LOCAL, UTC, UTC_MS, UTC_US, OFFSET, OFFSET_MS and OFFSET_US"},
        {"timeFormat", "UTC ", "one of LOCAL, UTC, UTC_MS, UTC_US, OFFSET, OFFSET_MS and OFFSET_US"},
        {"remote.enable", "1", "true or false"},
        {"escape.enable", "on", "true or false"},
        {"fallback.enable", "off", "true or false"},
        {"priorityPrefix", "yes", "true or false"},
        {"severity.id", "notice", "one of NONE, TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR and FATAL"},
        {"severity.mask", "ERROR,FATAL",
         "names separated by white space, out of NONE, TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR and FATAL"},
        {"severity.mask", " ",
         "names separated by white space, out of NONE, TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR and FATAL"},
        {"output.mask", "SEVERITY TEXT",
         "names separated by white space, out of NONE, DATETIME, TIMEZONE, SEVERITY, HOSTNAME, PROCESSNAME, "
         "PROCESSID, THREADID, MODULENAME, SOURCEFILE and LINENUMBER"},
        {"output.mask", "\t",
         "names separated by white space, out of NONE, DATETIME, TIMEZONE, SEVERITY, HOSTNAME, PROCESSNAME, "
         "PROCESSID, THREADID, MODULENAME, SOURCEFILE and LINENUMBER"},
        {"modules", "  ", "names and patterns separated by white space"},
        {"file.mode", "0444", "an octal number up to 0777 that lets the owner write, such as 0640"},
    };
    for (const auto& bad : cases) {
        Write logger;
        const String before = stateOf(logger);
        EXPECT_EQ(String("Bad log configuration: ") + PREFIX + bad.key + " = \"" + bad.value + "\" must be "
                      + bad.allowed,
                  refusal(logger, Settings{{bad.key, bad.value}, {"maxFileSize", "7"}}));
        EXPECT_EQ(before, stateOf(logger)) << bad.key;
    }
}

TEST(Reconfigure, RejectsUnknownKeys)
{
    Write logger;
    EXPECT_EQ(
        "Bad log configuration: com.kor.dal.nim.log.Control.severity = \"DEBUG\" is not a setting; the "
        "settings are "
        "escape.enable, fallback.enable, priorityPrefix, file.mode, stream, file, directory, "
        "localtime, timeFormat, "
        "severity.mask, "
        "severity.id, output.mask, modules, modules.limits, remote.enable, maxNumberOfFiles and maxFileSize",
        refusal(logger, Settings{{"severity", "DEBUG"}}));
}

TEST(Reconfigure, NamesEveryBadSettingInOneException)
{
    Write logger;
    EXPECT_EQ(
        "Bad log configuration: "
        "com.kor.dal.nim.log.Control.file = \"/nowhere/at/all/a.log\" must be a path that can be opened, but "
        "/nowhere/at/all/a.log: No such file or directory; "
        "com.kor.dal.nim.log.Control.localtime = \"no\" must be true or false; "
        "com.kor.dal.nim.log.Control.maxNumberOfFiles = \"many\" must be a decimal number",
        refusal(logger, Settings{{"maxNumberOfFiles", "many"},
                                 {"file", "/nowhere/at/all/a.log"},
                                 {"severity.id", "DEBUG"},
                                 {"localtime", "no"}}));
}

TEST(Reconfigure, KeepsTheOldLogIfThePathCannotBeOpened)
{
    const Folder folder;
    std::filesystem::create_directory(folder / "locked");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms(0700));
    Write logger;
    logger.setOutputMask(0);
    logger.setPath(folder / "a.log");
    writeError(logger, "before");
    const String before = stateOf(logger);
    {
        const AsNobody nobody;
        EXPECT_THAT(
            refusal(logger, Settings{{"directory", folder / "locked"}, {"severity.id", "TRACE"}}),
            testing::AllOf(HasSubstr("Control.directory = \"" + (folder / "locked") + "\" must be a path"),
                           EndsWith(": Permission denied")));
    }
    EXPECT_THAT(refusal(logger, Settings{{"file", folder.path()}}), EndsWith(": Is a directory"));
    EXPECT_THAT(refusal(logger, Settings{{"file", folder / "a.log/b.log"}}), EndsWith(": Not a directory"));
    EXPECT_THAT(refusal(logger, Settings{{"file", folder / String("a\0b", 3)}}),
                EndsWith("/a\\x00b: Invalid argument"));
    EXPECT_EQ(before, stateOf(logger));
    writeError(logger, "after");
    EXPECT_EQ(" : before\n : after\n", contentOf(folder / "a.log"));
}

/** A failure that the check cannot predict. */
TEST(Reconfigure, KeepsTheOldLogIfTheOpenFails)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "the undefined behaviour sanitizer looks at memory through a pipe of its own";
#endif
    if (support::isUnderValgrind()) {
        GTEST_SKIP() << "valgrind has descriptors of its own";
    }
    const Folder folder;
    Write logger;
    logger.setOutputMask(0);
    logger.setPath(folder / "a.log");
    writeError(logger, "before");
    const String before = stateOf(logger);
    {
        const Limit files(RLIMIT_NOFILE, 0);
        EXPECT_THAT(refusal(logger, Settings{{"file", folder / "b.log"}, {"severity.id", "TRACE"}}),
                    EndsWith("b.log: Too many open files"));
    }
    EXPECT_EQ(before, stateOf(logger));
    writeError(logger, "after");
    EXPECT_EQ(" : before\n : after\n", contentOf(folder / "a.log"));
}

TEST(Reconfigure, CreatesNoFileIfAnotherSettingIsBad)
{
    const Folder folder;
    Write logger;
    EXPECT_NE("nothing", refusal(logger, Settings{{"directory", folder / "sub"}, {"maxFileSize", "x"}}));
    EXPECT_FALSE(exists(folder / "sub"));
    logger.reconfigure(Settings{{"directory", folder / "sub"}, {"file", "a.log"}});
    EXPECT_TRUE(exists(folder / "sub/a.log")) << "a directory that is missing is created, one level";
}

TEST(Reconfigure, KeepsAFileThatIsAlreadyOpen)
{
    const Folder folder;
    std::filesystem::create_directory(folder / "locked");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms(0700));
    Write logger;
    logger.reconfigure(Settings{{"file", folder / "locked/a.log"}, {"output.mask", "NONE"}});
    std::ios* const stream = logger.getStream();
    const AsNobody nobody;
    logger.reconfigure(
        Settings{{"file", folder / "locked/a.log"}, {"output.mask", "NONE"}, {"maxFileSize", "9k"}});
    EXPECT_EQ(stream, logger.getStream());
    EXPECT_EQ(9000u, logger.getMaxFileSize());
}

TEST(Reconfigure, OpensTheFileAgainAfterAFallback)
{
    const Folder folder;
    Captured err(std::cerr);
    Write logger;
    const Settings settings{{"file", folder / "sub/a.log"}, {"output.mask", "NONE"}};
    logger.setConfiguration(settings);
    EXPECT_EQ(folder / "sub/a.log", logger.getPath());
    std::filesystem::create_directory(folder / "sub");
    std::filesystem::permissions(folder / "sub", std::filesystem::perms(0700));
    {
        const AsNobody nobody;
        EXPECT_THROW(writeError(logger, "lost"), system_error);
    }
    EXPECT_EQ("", logger.getPath());
    logger.reconfigure(settings);
    writeError(logger, "text");
    EXPECT_EQ(" : text\n", contentOf(folder / "sub/a.log"));
}

TEST(Reconfigure, ReportsAllChangesInOneRecord)
{
    const Folder folder;
    DefaultLogger logger;
    logger->reconfigure(Settings{{"file", folder / "a.log"},
                                 {"severity.id", "DEBUG"},
                                 {"output.mask", "MODULENAME SEVERITY"},
                                 {"modules", "a b.*"},
                                 {"maxFileSize", "1MiB"}});
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(
        "\tOutputPath:   \"" + (folder / "a.log")
            + "\"\n"
              "\tOutputMask:   0x84 [SEVERITY,MODULENAME]\n"
              "\tSeverityMin:  DEBUG\n"
              "\tModuleFilter:\n\ta\n\tb.*\n"
              "com.kor.dal.nim.log.internal INFO : Changing logging settings: OutputPath Severity OutputMask "
              "ModuleFilter MaxFileSize\n"
              "\tOutputPath\n\t\told: \"<user assigned stream>\"\n\t\tnew: \""
            + (folder / "a.log")
            + "\"\n"
              "\tSeverity\n\t\told: NOTICE\n\t\tnew: DEBUG\n"
              "\tOutputMask\n\t\told: 0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
              "\t\tnew: 0x84 [SEVERITY,MODULENAME]\n"
              "\tModuleFilter\n\t\told: *\n\t\tnew: a b.*\n"
              "\tMaxFileSize\n\t\told: \"0\"\n\t\tnew: \"1048576\"\n",
        behindFirstLine(contentOf(folder / "a.log")));
}

TEST(Reconfigure, ReportsNothingIfNothingChanges)
{
    const Folder folder;
    DefaultLogger logger;
    const Settings settings{{"file", folder / "a.log"}, {"localtime", "false"}};
    logger->reconfigure(settings);
    const String before = contentOf(folder / "a.log");
    logger->reconfigure(settings);
    EXPECT_EQ(before, contentOf(folder / "a.log"));
}

TEST(Reconfigure, OtherLoggersDoNotReport)
{
    DefaultLogger logger;
    OwnLogger own;
    Captured out(std::cout);
    own.write.reconfigure(Settings{{"stream", "STDOUT"}, {"severity.id", "TRACE"}});
    EXPECT_EQ("", out.taken());
    EXPECT_EQ("", own.taken());
    EXPECT_EQ("", logger.taken());
}

TEST(Reconfigure, MaySelectTheFileOfTheCimomLogger)
{
    OwnLogger owner;
    const Module module(CIMOM_MODULE, owner.write);
    Write logger;
    EXPECT_EQ(
        "Bad log configuration: com.kor.dal.nim.log.Control.stream = \"CIMOM\" must be available, but CIMOM "
        "stream is not available",
        refusal(logger, Settings{{"stream", "CIMOM"}, {"severity.id", "TRACE"}}));
    EXPECT_EQ(log::Severity_NOTICE, logger.getSeverity());
    logger.registerModule(module);
    logger.reconfigure(Settings{{"stream", "CIMOM"}, {"maxFileSize", "10"}});
    logger.reconfigure(Settings{{"stream", "CIMOM"}, {"maxFileSize", "10"}});
    EXPECT_EQ(&asIos(owner.sink), logger.getStream());
    EXPECT_EQ(0u, owner.write.getMaxFileSize()) << "the limits are those of the owner";
    logger.reconfigure(Settings{{"maxFileSize", "10"}});
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    EXPECT_EQ(10u, logger.getMaxFileSize());
    EXPECT_EQ(&asIos(owner.sink), owner.write.getStream());
    logger.unregisterModule(module);
}

TEST(Reconfigure, OwnerMovesTheLoggersThatShareItsFile)
{
    const Folder folder;
    Write owner;
    owner.setPath(folder / "a.log");
    const Module module(CIMOM_MODULE, owner);
    Write logger;
    logger.setOutputMask(0);
    logger.registerModule(module);
    logger.setStream("CIMOM");
    logger.unregisterModule(module);
    owner.reconfigure(Settings{{"file", folder / "b.log"}});
    writeError(logger, "text");
    EXPECT_EQ(" : text\n", contentOf(folder / "b.log"));
}

// In a perturbed build, or in a few of a thousand rounds, the other logger writes after the file has been
// replaced and before its limits are set.
TEST(Reconfigure, OwnerSelectsAFileTogetherWithItsLimits)
{
    constexpr int THREADS = 2;
    constexpr int ROUNDS = 1000;
    EXPECT_EQ(0, support::inChildProcess([] {
                  // Collects the traces of all rotations.
                  ASSERT_NE(nullptr, std::freopen("/dev/null", "w", stderr));
                  const Folder folder;
                  const Settings limited{
                      {"file", folder / "a.log"}, {"maxFileSize", "1"}, {"maxNumberOfFiles", "1"}};
                  const Settings unlimited{{"file", folder / "b.log"}};
                  Write owner;
                  const Module cimom(CIMOM_MODULE, owner);
                  Write borrower;
                  borrower.registerModule(cimom);
                  borrower.setStream("CIMOM");
                  std::atomic<bool> stop(false);
                  std::vector<std::thread> threads;
                  for (int i = 0; i < THREADS; ++i) {
                      threads.emplace_back([&] {
                          while (!stop) {
                              writeError(borrower, "text");
                          }
                      });
                  }
                  for (int i = 0; i < ROUNDS && !exists(folder / "b.log.0"); ++i) {
                      owner.reconfigure(limited);
                      owner.reconfigure(unlimited);
                  }
                  stop = true;
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
                  EXPECT_FALSE(exists(folder / "b.log.0")) << "rotated by the limit of the other file";
                  borrower.unregisterModule(cimom);
              }));
}

TEST(Reconfigure, DeletesExcessFiles)
{
    const Folder folder;
    for (const char* const name : {"a.log.0", "a.log.1", "a.log.2"}) {
        logfiletest::create(folder / name, "old");
    }
    Captured err(std::cerr);
    Write logger;
    logger.reconfigure(Settings{{"file", folder / "a.log"}, {"maxNumberOfFiles", "1"}});
    EXPECT_EQ((std::vector<String>{"a.log", "a.log.0"}), logfiletest::namesIn(folder.path()));
}

TEST(Reconfigure, ThrowsForALoggerThatIsNotAWrite)
{
    PlainLog logger;
    EXPECT_THROW(logger.reconfigure(Properties()), std::bad_cast);
    EXPECT_THROW(logger.reopen(), std::bad_cast);
}

TEST(Reconfigure, LosesNoRecordOfOtherThreads)
{
    constexpr int THREADS = 3;
    constexpr int ROUNDS = 60;
    const Folder folder;
    Write logger;
    const Settings one{{"file", folder / "one.log"}, {"output.mask", "NONE"}, {"escape.enable", "true"}};
    const Settings two{{"file", folder / "two.log"}, {"output.mask", "NONE"}, {"modules", "*"}};
    const Settings bad{{"file", folder / "three.log"}, {"maxFileSize", "x"}};
    logger.reconfigure(one);
    Module module("a", logger);
    std::atomic<bool> stop(false);
    std::atomic<std::size_t> written(0);
    std::atomic<int> running(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            ++running;
            do {
                NIM_LOG_TO(module, Severity_ERROR) << "text";
                ++written;
            } while (!stop);
        });
    }
    while (running != THREADS) {
        std::this_thread::yield();
    }
    for (int i = 0; i < ROUNDS; ++i) {
        logger.reconfigure(i % 2 == 0 ? two : one);
        EXPECT_NE("nothing", refusal(logger, bad));
        EXPECT_TRUE(logger.reopen());
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    const String lines = contentOf(folder / "one.log") + contentOf(folder / "two.log");
    EXPECT_EQ(written * String(" : text\n").size(), lines.size());
    EXPECT_FALSE(exists(folder / "three.log"));
}

TEST(Reopen, OpensThePathAgainAfterARename)
{
    const Folder folder;
    Write logger;
    logger.setOutputMask(0);
    logger.setFileMode(0600);
    logger.setPath(folder / "a.log");
    writeError(logger, "one");
    std::filesystem::rename(folder / "a.log", folder / "a.log-20261122");
    writeError(logger, "two");
    EXPECT_TRUE(logger.reopen());
    EXPECT_TRUE(exists(folder / "a.log"));
    writeError(logger, "three");
    EXPECT_EQ(" : one\n : two\n", contentOf(folder / "a.log-20261122"));
    EXPECT_EQ(" : three\n", contentOf(folder / "a.log"));
    struct stat info = {};
    EXPECT_EQ(0, ::stat((folder / "a.log").c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 07777);
}

TEST(Reopen, KeepsTheOldFileIfTheNewOneCannotBeOpened)
{
    const Folder folder;
    std::filesystem::create_directory(folder / "locked");
    Write logger;
    logger.setOutputMask(0);
    logger.setPath(folder / "locked/a.log");
    writeError(logger, "one");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms(0700));
    {
        const AsNobody nobody;
        EXPECT_THROW(logger.reopen(), system_error);
    }
    EXPECT_EQ(folder / "locked/a.log", logger.getPath());
    writeError(logger, "two");
    EXPECT_EQ(" : one\n : two\n", contentOf(folder / "locked/a.log"));
}

TEST(Reopen, DoesNothingForAStreamOrASharedFile)
{
    const Folder folder;
    OwnLogger own;
    EXPECT_FALSE(own.write.reopen());
    EXPECT_EQ(&asIos(own.sink), own.write.getStream());
    Write owner;
    owner.setPath(folder / "a.log");
    const Module module(CIMOM_MODULE, owner);
    own.write.registerModule(module);
    own.write.setStream("CIMOM");
    own.write.unregisterModule(module);
    EXPECT_FALSE(own.write.reopen());
    EXPECT_EQ(folder / "a.log", own.write.getPath());
}

// reopen() opens the file, then waits for the thread that rotates it. The opened file has been renamed by
// then.
TEST(Reopen, DoesNotContinueInAFileThatIsRotatedConcurrently)
{
    constexpr int ROUNDS = 100;
    constexpr int RECORDS = 10;
    EXPECT_EQ(0, support::inChildProcess([] {
                  // Collects the traces of all rotations.
                  ASSERT_NE(nullptr, std::freopen("/dev/null", "w", stderr));
                  const Folder folder;
                  const String path = folder / "a.log";
                  Write logger;
                  logger.setOutputMask(0);
                  logger.setPath(path);
                  for (int round = 0; round < ROUNDS; ++round) {
                      writeError(logger, "begin");
                      logger.setMaxFileSize(1);
                      std::atomic<int> written(0);
                      std::thread thread([&] {
                          for (int i = 0; i < RECORDS; ++i) {
                              writeError(logger, "text");
                              ++written;
                          }
                      });
                      while (written == 0) {
                          std::this_thread::yield();
                      }
                      while (written < RECORDS - 1) {
                          EXPECT_TRUE(logger.reopen());
                      }
                      thread.join();
                      logger.setMaxFileSize(0);
                      writeError(logger, "end");
                      ASSERT_EQ(" : end\n", contentOf(path)) << "in round " << round;
                      logger.setMaxNumberOfFiles(1);
                      EXPECT_TRUE(exists(path + ".0"));
                      ASSERT_FALSE(exists(path + ".1")) << "counted in round " << round;
                      logger.setMaxNumberOfFiles(0);
                  }
              }));
}

TEST(Reopen, NewFileOfTheDefaultLoggerBeginsWithAStreamHeader)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    logger->setMaxFileSize(100000);
    std::filesystem::rename(folder / "a.log", folder / "b.log");
    EXPECT_TRUE(com_kor_dal_nim_log_control.reopen());
    writeError(logger.write(), "text");
    EXPECT_EQ("\tOutputPath:   \"" + (folder / "a.log")
                  + "\"\n"
                    "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                    "\tSeverityMin:  NOTICE\n"
                    "\tModuleFilter: *\n"
                    "global ERROR Source : text\n",
              behindFirstLine(contentOf(folder / "a.log")));
    EXPECT_EQ(100000u, logger->getMaxFileSize());
}

TEST(CheckConfiguration, ReportsTheSettingsThatReconfigureRejectsAndCreatesNothing)
{
    const Folder folder;
    const Settings settings{{"file", folder / "a.log"}, {"maxFileSize", "10 MB"}, {"severity", "INFO"}};
    const std::vector<Control::BadSetting> bad = Control::checkConfiguration(settings);
    ASSERT_EQ(2u, bad.size());
    EXPECT_EQ("com.kor.dal.nim.log.Control.maxFileSize", bad[0].key);
    EXPECT_EQ("10 MB", bad[0].value);
    EXPECT_THAT(bad[0].reason, testing::StartsWith("must be a decimal number of bytes"));
    EXPECT_EQ("com.kor.dal.nim.log.Control.severity", bad[1].key);
    EXPECT_THAT(bad[1].reason, testing::StartsWith("is not a setting; the settings are "));
    EXPECT_FALSE(exists(folder / "a.log"));
    EXPECT_TRUE(Control::checkConfiguration(Settings{{"file", folder / "sub/a.log"}}).empty());
    EXPECT_EQ(1u, Control::checkConfiguration(Settings{{"file", folder / "sub/sub/a.log"}}).size());
    EXPECT_TRUE(Control::checkConfiguration(Settings{{"file", folder / "sub//a.log"}}).empty());
    EXPECT_TRUE(
        Control::checkConfiguration(Settings{{"stream", "CIMOM"}, {"file", "/nowhere/at/all"}}).empty());
    EXPECT_FALSE(exists(folder / "sub"));
}

}
