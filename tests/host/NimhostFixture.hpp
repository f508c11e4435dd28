#ifndef DALNIM_TESTS_HOST_NIMHOSTFIXTURE_HPP
#define DALNIM_TESTS_HOST_NIMHOSTFIXTURE_HPP

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

/** Runs the example host, with its configuration and its log in a temporary directory. */
class NimhostFixture : public testing::Test
{
protected:
    /** Prefix of the keys of the log configuration. */
    inline static const std::string LOG = "com.kor.dal.nim.log.Control.";

    std::vector<std::string> command(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> words = {NIMHOST_PROGRAM};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return words;
    }

    /**
     * Writes a configuration of sources whose log is in the temporary directory. Returns its path.
     * @param hostSettings appended to the settings of the host, which it overrides
     */
    std::string configure(const std::string& logSettings, const std::string& hostSettings = "") const
    {
        const std::string file = scratch.file("test.properties");
        support::writeFile(file, "%pragma include \"test-log.properties\"\n"
                                 "pool/threads = 2\npool/pending = 16\n"
                                 "/source/rate = 0\n/source/queue = 8\n/source/block = true\n"
                                 "/source/debug.every = 4\n/source/fail.every = 0\n/source/break.after = 0\n"
                                     + hostSettings);
        support::writeFile(scratch.file("test-log.properties"), logSettings);
        return file;
    }

    static std::string fileSettings(const std::string& more)
    {
        return LOG + "directory = log\n" + LOG + "file = host.log\n" + more;
    }

    std::string logText() const
    {
        return support::readFile(scratch.file("log/host.log"));
    }

    /** Waits until the log contains a text. Returns false after 15 seconds. */
    bool logHolds(const std::string& text) const
    {
        return waitFor([&] { return logText().find(text) != std::string::npos; });
    }

    /** Waits until a condition is true. Returns false after 15 seconds. */
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

    /**
     * Waits until the process has ended, so that wait() returns immediately. Returns false after 15 seconds.
     */
    static bool ends(const support::ChildProcess& host)
    {
        const std::string stat = "/proc/" + std::to_string(host.process()) + "/stat";
        return waitFor([&] {
            const std::string text = support::readFile(stat);
            const std::size_t name = text.rfind(") ");
            return name == std::string::npos || text[name + 2] == 'Z';
        });
    }

    /**
     * Waits until the host blocks the signals that it watches, and no others: while a program is being
     * started, the process may block all of them for a moment.
     */
    static bool watchesSignals(const support::ChildProcess& host)
    {
        constexpr unsigned long long watched = 1U << (SIGHUP - 1) | 1U << (SIGINT - 1) | 1U << (SIGTERM - 1);
        const std::string status = "/proc/" + std::to_string(host.process()) + "/status";
        return waitFor([&] {
            const std::string text = support::readFile(status);
            const std::size_t mask = text.find("SigBlk:");
            return mask != std::string::npos && std::stoull(text.substr(mask + 7), nullptr, 16) == watched;
        });
    }

    /** Returns a command that runs the host through a shell script, in which "$0" "$@" is the host. */
    std::vector<std::string> shellCommand(const std::string& script,
                                          const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> words = {"/bin/sh", "-c", script};
        const std::vector<std::string> rest = command(arguments);
        words.insert(words.end(), rest.begin(), rest.end());
        return words;
    }

    /** Returns the records of requests in all log files. */
    std::vector<std::string> answers() const
    {
        std::vector<std::string> records;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.file("log"))) {
            std::istringstream text(support::readFile(entry.path()));
            for (std::string line; std::getline(text, line);) {
                if (line.find("answered") != std::string::npos) {
                    records.push_back(line);
                }
            }
        }
        return records;
    }

    /** Expects each record that the host has counted exactly once in the log files. */
    void expectEachAnswerOnce(const support::ChildProcess& host) const
    {
        const std::vector<std::string> records = answers();
        EXPECT_EQ(std::set<std::string>(records.begin(), records.end()).size(), records.size()) << "twice";
        EXPECT_EQ(tableRow(host.output(), "source records written"), records.size());
    }

    /** Returns the number in a row of the summary, or npos if there is no such row. */
    static std::size_t tableRow(const std::string& output, const std::string& label)
    {
        const std::size_t row = output.find("  " + label + ' ');
        return row != std::string::npos ? std::stoul(output.substr(row + label.size() + 2))
                                        : std::string::npos;
    }

    /** Runs the host to its end, and expects one line on standard error and status 2. */
    void expectRejected(const std::vector<std::string>& arguments, const std::string& line) const
    {
        support::ChildProcess host(command(arguments), scratch.path());
        EXPECT_EQ(host.wait(), 2);
        EXPECT_EQ(host.errors(), line + "\n");
        EXPECT_EQ(host.output(), "");
    }

    support::ScratchFolder scratch;
};

#endif
