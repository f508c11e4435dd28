// The logger for the journal with a real systemd-journald, which runs with a /run of its own.

#include <dalnim/journal/JournalLog.hpp>

#include <dalnim/log/Field.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/sys/System.hpp>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/OwnDisk.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::journal::JournalLog;
using com::kor::dal::nim::log::Module;
using support::ChildProcess;
using testing::HasSubstr;
namespace nim = com::kor::dal::nim;

class JournaldTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const int error = support::ownDiskError("/run")) {
            GTEST_SKIP() << "/run cannot be replaced: " << std::strerror(error);
        }
        if (support::readFile("/etc/machine-id").size() < 32) {
            GTEST_SKIP() << "/etc/machine-id is empty: systemd-journald does not start";
        }
    }

    /** Runs a body in a process whose journal is in memory, and that has no other journal. */
    template <class Body>
    void withJournald(Body body)
    {
        EXPECT_EQ(
            0, support::inChildProcess([&] {
                ASSERT_TRUE(support::mountOwnDisk("/run", "size=200m")) << std::strerror(errno);
                ASSERT_EQ(0, ::mount("none", "/etc/systemd", "tmpfs", 0, "size=64k")) << std::strerror(errno);
                support::writeFile("/etc/systemd/journald.conf",
                                   "[Journal]\nStorage=volatile\nReadKMsg=no\nAudit=no\n"
                                   "ForwardToSyslog=no\nForwardToWall=no\nRateLimitBurst=0\n");
                std::filesystem::create_directory("/run/log");
                std::filesystem::create_directory("/run/systemd");
                const ChildProcess journald({JOURNALD_PROGRAM}, scratch.path());
                ASSERT_TRUE(waitFor([] { return std::filesystem::exists("/run/systemd/journal/socket"); }))
                    << journald.errors();
                body();
            }));
    }

    template <class Condition>
    static bool waitFor(Condition condition)
    {
        for (int round = 0; round < 1500; ++round) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    /** Returns the output of journalctl with these arguments as soon as it has a number of lines. */
    std::string query(std::vector<std::string> arguments, std::ptrdiff_t lines) const
    {
        const std::string folder = scratch.file("query");
        std::filesystem::create_directory(folder);
        std::vector<std::string> command = {JOURNALCTL_PROGRAM, "--directory=/run/log/journal", "--quiet",
                                            "--no-pager"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        std::string found;
        waitFor([&] {
            ChildProcess journalctl(command, folder);
            journalctl.wait();
            found = journalctl.output();
            return std::count(found.begin(), found.end(), '\n') >= lines;
        });
        return found;
    }

    const support::ScratchFolder scratch;
};

TEST_F(JournaldTest, RecordsAreFoundByTheirFields)
{
    withJournald([&] {
        JournalLog logger("server");
        Module disks("disks", logger);
        Module nets("nets", logger);
        NIM_LOG_TO(disks, Severity_WARNING) << "sda1 is " << 97 << "% full";
        const int line = __LINE__ - 1;
        NIM_LOG_TO(disks, Severity_NOTICE) << "sdb1 is fine";
        NIM_LOG_TO(nets, Severity_ERROR) << "eth0 is down:\n  no carrier";

        EXPECT_EQ("sda1 is 97% full\nsdb1 is fine\neth0 is down:\n  no carrier\n",
                  query({"--identifier=server", "--output=cat"}, 4));
        EXPECT_EQ("sda1 is 97% full\nsdb1 is fine\n", query({"--output=cat", "DALNIM_MODULE=disks"}, 2));
        EXPECT_EQ("sda1 is 97% full\neth0 is down:\n  no carrier\n",
                  query({"--output=cat", "--identifier=server", "--priority=warning"}, 3));
        EXPECT_EQ("eth0 is down:\n  no carrier\n", query({"--output=cat", "DALNIM_SEVERITY=ERROR"}, 2));

        const std::string entry = query({"--output=json", "DALNIM_MODULE=disks", "PRIORITY=4"}, 1);
        for (const std::string& field :
             {std::string(R"("MESSAGE":"sda1 is 97% full")"), std::string(R"("_TRANSPORT":"journal")"),
              std::string(R"("SYSLOG_IDENTIFIER":"server")"), std::string(R"("DALNIM_SEVERITY":"WARNING")"),
              std::string(R"("CODE_FILE":")" __FILE__ R"(")"),
              R"("CODE_LINE":")" + std::to_string(line) + R"(")",
              R"("TID":")" + std::to_string(nim::sys::System::threadId()) + R"(")",
              R"("_PID":")" + std::to_string(::getpid()) + R"(")"}) {
            EXPECT_THAT(entry, HasSubstr(field));
        }
    });
}

TEST_F(JournaldTest, RecordsOfSeveralThreadsAreStoredOnceEach)
{
    withJournald([&] {
        constexpr int THREADS = 4;
        constexpr int RECORDS = 500;
        JournalLog logger("server");
        std::ostringstream fallback;
        logger.setStream(static_cast<std::ios&>(fallback));
        Module disks("disks", logger);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([&disks, thread] {
                for (int i = 0; i < RECORDS; ++i) {
                    NIM_LOG_TO(disks, Severity_ERROR) << "record " << i << " of " << thread;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::istringstream messages(query({"--identifier=server", "--output=cat"}, THREADS * RECORDS));
        std::multiset<std::string> texts;
        for (std::string text; std::getline(messages, text);) {
            texts.insert(text);
        }
        EXPECT_EQ(std::size_t(THREADS * RECORDS), texts.size());
        EXPECT_EQ(texts.size(), std::set<std::string>(texts.begin(), texts.end()).size());
        EXPECT_EQ("", fallback.str());
    });
}

TEST_F(JournaldTest, RecordIsFoundByAFieldOfItsText)
{
    using com::kor::dal::nim::log::field;
    withJournald([&] {
        JournalLog logger("server");
        Module shop("shop", logger);
        NIM_LOG_TO(shop, Severity_ERROR) << "failed" << field("user.id", 17);
        NIM_LOG_TO(shop, Severity_ERROR) << "failed" << field("user.id", 18);
        std::string many;
        for (int i = 0; i < 2000; ++i) {
            many += " name" + std::to_string(i) + "=1";
        }
        NIM_LOG_TO(shop, Severity_ERROR) << "many" << many;
        EXPECT_EQ("failed user.id=18\n", query({"--output=cat", "F_USER_ID=18"}, 1));
        EXPECT_EQ("many" + many + "\n", query({"--output=cat", "F_NAME99=1"}, 1));
    });
}

TEST_F(JournaldTest, LargeRecordIsStoredCompletely)
{
    withJournald([&] {
        JournalLog logger("server");
        Module disks("disks", logger);
        const std::string text(300000, 'x');
        NIM_LOG_TO(disks, Severity_ERROR) << text << "end";
        EXPECT_TRUE(text + "end\n" == query({"--identifier=server", "--output=cat"}, 1));
    });
}

}
