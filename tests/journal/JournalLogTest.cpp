// The logger for the journal, with a socket of the test instead of the journal.

#include "JournalSocket.hpp"

#include <dalnim/journal/JournalLog.hpp>

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Field.hpp>
#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <support/Files.hpp>
#include <support/OwnDisk.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::journal::JournalLog;
using com::kor::dal::nim::log::Log;
using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using journaltest::Fields;
using journaltest::JournalSocket;
using testing::HasSubstr;
namespace nim = com::kor::dal::nim;

/** Runs bodies in a process with a /run of its own. */
class JournalLogTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const int error = support::ownDiskError("/run")) {
            GTEST_SKIP() << "/run cannot be replaced: " << std::strerror(error);
        }
    }

    /** Runs a body with the socket of a journal and a logger, whose fallback is a string stream. */
    template <class Body>
    void withJournal(Body body)
    {
        inOwnRun([&] {
            const JournalSocket journal;
            JournalLog logger("server");
            logger.setStream(static_cast<std::ios&>(fallback));
            logger.setOutputMask(nim::log::Mask_MODULENAME | nim::log::Mask_SEVERITY);
            Module disks("disks", logger);
            body(journal, logger, disks);
        });
    }

    template <class Body>
    static void inOwnRun(Body body)
    {
        EXPECT_EQ(0, support::inChildProcess([&] {
                      ASSERT_TRUE(support::mountOwnDisk("/run", "size=1m")) << std::strerror(errno);
                      body();
                  }));
    }

    std::ostringstream fallback;
};

TEST_F(JournalLogTest, RecordIsOneEntryWithItsFields)
{
    withJournal([&](const JournalSocket& journal, JournalLog&, Module& disks) {
        NIM_LOG_TO(disks, Severity_WARNING) << "sda1 is " << 97 << "% full \n";
        const int line = __LINE__ - 1;
        EXPECT_EQ((Fields{{"MESSAGE", "sda1 is 97% full"},
                          {"PRIORITY", "4"},
                          {"SYSLOG_IDENTIFIER", "server"},
                          {"CODE_FILE", __FILE__},
                          {"CODE_LINE", std::to_string(line)},
                          {"TID", std::to_string(nim::sys::System::threadId())},
                          {"DALNIM_MODULE", "disks"},
                          {"DALNIM_SEVERITY", "WARNING"}}),
                  journal.next());
        EXPECT_FALSE(journal.hasEntry());
        EXPECT_EQ("", fallback.str());
    });
}

TEST_F(JournalLogTest, EachSeverityHasItsPriority)
{
    withJournal([](const JournalSocket& journal, JournalLog& logger, Module& disks) {
        logger.setSeverity(nim::log::Severity_NONE);
        const char* const priorities[] = {"6", "7", "7", "6", "5", "4", "3", "2"};
        const char* const names[] = {"NONE", "TRACE", "DEBUG", "INFO", "NOTICE", "WARNING", "ERROR", "FATAL"};
        for (int severity = 0; severity < 8; ++severity) {
            NIM_LOG_TO(disks, static_cast<nim::log::Severity>(severity)) << "text";
            Fields entry = journal.next();
            EXPECT_EQ(priorities[severity], entry["PRIORITY"]);
            EXPECT_EQ(names[severity], entry["DALNIM_SEVERITY"]);
        }
    });
}

TEST_F(JournalLogTest, IdentifierIsByDefaultTheNameOfTheProgram)
{
    inOwnRun([] {
        const JournalSocket journal;
        JournalLog logger;
        Module disks("disks", logger);
        NIM_LOG_TO(disks, Severity_ERROR) << "text";
        EXPECT_EQ("journal_tests", journal.next()["SYSLOG_IDENTIFIER"]);
    });
}

TEST_F(JournalLogTest, TextOfSeveralLinesAndControlCharactersIsOneField)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        const String text("first\nPRIORITY=0\n\x01 third\0fourth", 32);
        NIM_LOG_TO(disks, Severity_ERROR) << text << "\n\n";
        Fields entry = journal.next();
        EXPECT_EQ(text, entry["MESSAGE"]);
        EXPECT_EQ("3", entry["PRIORITY"]);
    });
}

TEST_F(JournalLogTest, EmptyTextIsAnEntryWithAnEmptyMessage)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        NIM_LOG_TO(disks, Severity_ERROR) << " \n";
        const Fields entry = journal.next();
        ASSERT_EQ(1U, entry.count("MESSAGE"));
        EXPECT_EQ("", entry.at("MESSAGE"));
    });
}

TEST_F(JournalLogTest, FieldsOfTheTextAreFieldsOfTheEntry)
{
    using com::kor::dal::nim::log::field;
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        NIM_LOG_TO(disks, Severity_ERROR)
            << "payment failed" << field("user", 17) << field("reason", "card\n\"expired\"")
            << field("http.status-code", 402) << field("_PID", 1) << field("message", "forged")
            << field("empty", "") << field("user", 18);
        Fields entry = journal.next();
        EXPECT_EQ("payment failed user=17 reason=\"card\\n\\\"expired\\\"\" http.status-code=402 _PID=1 "
                  "message=forged empty=\"\" user=18",
                  entry["MESSAGE"]);
        EXPECT_EQ("17|18", entry["F_USER"]);
        EXPECT_EQ("card\n\"expired\"", entry["F_REASON"]);
        EXPECT_EQ("402", entry["F_HTTP_STATUS_CODE"]);
        EXPECT_EQ("1", entry["F__PID"]);
        EXPECT_EQ("forged", entry["F_MESSAGE"]);
        EXPECT_EQ(1U, entry.count("F_EMPTY"));
        EXPECT_EQ(14U, entry.size());
    });
}

TEST_F(JournalLogTest, NamesAndNumberOfFieldsAreLimited)
{
    using com::kor::dal::nim::log::field;
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        NIM_LOG_TO(disks, Severity_ERROR) << "text" << field(std::string(100, 'n'), 1);
        EXPECT_EQ("1", journal.next()["F_" + std::string(62, 'N')]);
        std::string text;
        for (int i = 0; i < 2000; ++i) {
            // A value with a newline takes the largest number of parts of the message.
            text += "name" + std::to_string(i) + "=\"1\\n2\" ";
        }
        NIM_LOG_TO(disks, Severity_ERROR) << text;
        const Fields entry = journal.next();
        ASSERT_EQ(1U, entry.count("F_NAME99"));
        EXPECT_EQ("1\n2", entry.at("F_NAME99"));
        EXPECT_EQ(0U, entry.count("F_NAME100"));
    });
}

TEST_F(JournalLogTest, ExceptionIsLoggedWithItsTrace)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& com_kor_dal_nim_log_module) {
        NIM_LOG_TRAPPED(Severity_ERROR, nim::sys::system_error(EACCES), "cannot open");
        EXPECT_THAT(journal.next()["MESSAGE"], testing::StartsWith("cannot open : 13 : Permission denied"));
    });
}

TEST_F(JournalLogTest, EntryThatIsTooLargeForADatagramArrives)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        const String text(20000000, 'x');
        NIM_LOG_TO(disks, Severity_ERROR) << text << "\nend";
        Fields entry = journal.next();
        EXPECT_TRUE(text + "\nend" == entry["MESSAGE"]) << entry["MESSAGE"].size();
        EXPECT_EQ("disks", entry["DALNIM_MODULE"]);
    });
}

TEST_F(JournalLogTest, ThresholdAndModuleFilterApply)
{
    withJournal([&](const JournalSocket& journal, JournalLog& logger, Module& disks) {
        Module nets("nets", logger);
        NIM_LOG_TO(disks, Severity_INFO) << "below the threshold";
        logger.setSeverity(nim::log::Severity_DEBUG);
        logger.setModuleFilter("net*", true);
        NIM_LOG_TO(disks, Severity_WARNING) << "of a module that is not selected";
        NIM_LOG_TO(nets, Severity_DEBUG) << "passes";
        EXPECT_EQ("passes", journal.next()["MESSAGE"]);
        EXPECT_FALSE(journal.hasEntry());
        EXPECT_EQ("", fallback.str());
    });
}

TEST_F(JournalLogTest, SeverityIsCheckedAgainUnlessForced)
{
    withJournal([](const JournalSocket& journal, JournalLog& logger, Module& disks) {
        nim::log::Header record(nim::log::Severity_DEBUG, "dir/Source.cpp", 7);
        record.os() << "forced";
        Log& log = logger;
        log.log(disks, record, false);
        EXPECT_FALSE(journal.hasEntry());
        log.log(disks, record, true);
        Fields entry = journal.next();
        EXPECT_EQ("forced", entry["MESSAGE"]);
        EXPECT_EQ("dir/Source.cpp", entry["CODE_FILE"]);
        EXPECT_EQ("7", entry["CODE_LINE"]);
    });
}

TEST_F(JournalLogTest, RecordWithoutASourceFileHasNoFieldForIt)
{
    withJournal([](const JournalSocket& journal, JournalLog& logger, Module& disks) {
        nim::log::Header record(nim::log::Severity_ERROR, nullptr, 0);
        record.os() << "text";
        static_cast<Log&>(logger).log(disks, record, false);
        const Fields entry = journal.next();
        EXPECT_EQ(1U, entry.count("CODE_LINE"));
        EXPECT_EQ(0U, entry.count("CODE_FILE"));
    });
}

TEST_F(JournalLogTest, WithoutAJournalTheRecordIsWrittenToTheFallback)
{
    inOwnRun([&] {
        JournalLog logger("server");
        logger.setStream(static_cast<std::ios&>(fallback));
        logger.setOutputMask(nim::log::Mask_MODULENAME | nim::log::Mask_SEVERITY);
        Module disks("disks", logger);
        NIM_LOG_TO(disks, Severity_WARNING) << "no journal";
        EXPECT_EQ("disks WARNING : no journal\n", fallback.str());
        std::optional<JournalSocket> journal(std::in_place);
        NIM_LOG_TO(disks, Severity_WARNING) << "a journal";
        EXPECT_EQ("a journal", journal->next()["MESSAGE"]);
        // The socket remains, but no process reads it.
        journal.reset();
        NIM_LOG_TO(disks, Severity_WARNING) << "has ended";
        EXPECT_EQ("disks WARNING : no journal\ndisks WARNING : has ended\n", fallback.str());
        ::unlink(JournalSocket::PATH);
        journal.emplace();
        NIM_LOG_TO(disks, Severity_WARNING) << "has restarted";
        EXPECT_EQ("has restarted", journal->next()["MESSAGE"]);
    });
}

TEST_F(JournalLogTest, ConfigurationSelectsThresholdAndFallback)
{
    const support::ScratchFolder folder;
    inOwnRun([&] {
        std::istringstream text("com.kor.dal.nim.log.Control.severity.id = DEBUG\n"
                                "com.kor.dal.nim.log.Control.output.mask = SEVERITY\n"
                                "com.kor.dal.nim.log.Control.directory = "
                                + folder.path()
                                + "\n"
                                  "com.kor.dal.nim.log.Control.file = fallback.log\n");
        JournalLog logger("server");
        logger.setConfiguration(nim::io::Properties(text));
        Module disks("disks", logger);
        NIM_LOG_TO(disks, Severity_DEBUG) << "no journal";
        EXPECT_EQ("DEBUG : no journal\n", support::readFile(folder.file("fallback.log")));
        const JournalSocket journal;
        NIM_LOG_TO(disks, Severity_DEBUG) << "a journal";
        EXPECT_EQ("a journal", journal.next()["MESSAGE"]);
        EXPECT_EQ("DEBUG : no journal\n", support::readFile(folder.file("fallback.log")));
    });
}

TEST_F(JournalLogTest, RecordsOfSeveralThreadsArriveOnceEach)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        constexpr int THREADS = 4;
        constexpr int RECORDS = 200;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([&disks, thread] {
                for (int i = 0; i < RECORDS; ++i) {
                    NIM_LOG_TO(disks, Severity_ERROR) << "record " << i << " of " << thread;
                }
            });
        }
        // Statements wait while the queue of the socket is full.
        std::set<std::string> texts;
        std::set<std::string> ids;
        for (int i = 0; i < THREADS * RECORDS; ++i) {
            Fields entry = journal.next();
            texts.insert(entry["MESSAGE"]);
            ids.insert(entry["TID"]);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(std::size_t(THREADS * RECORDS), texts.size());
        EXPECT_EQ(std::size_t(THREADS), ids.size());
        EXPECT_FALSE(journal.hasEntry());
    });
}

TEST_F(JournalLogTest, ChildOfAForkCanLog)
{
    withJournal([](const JournalSocket& journal, JournalLog&, Module& disks) {
        NIM_LOG_TO(disks, Severity_ERROR) << "of the parent";
        EXPECT_EQ("of the parent", journal.next()["MESSAGE"]);
        EXPECT_EQ(0, support::inChildProcess([&] { NIM_LOG_TO(disks, Severity_ERROR) << "of the child"; }));
        EXPECT_EQ("of the child", journal.next()["MESSAGE"]);
    });
}

}
