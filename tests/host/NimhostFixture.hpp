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

/** Runs of the example host, with its configuration and its log in a scratch folder. */
class NimhostFixture : public testing::Test
{
protected:
    /** What the keys of the log's configuration begin with. */
    inline static const std::string LOG = "com.kor.dal.nim.log.Control.";

    std::vector<std::string> command(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> words = {NIMHOST_PROGRAM};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return words;
    }

    /**
     * Writes a configuration of sources whose log stands in the scratch folder; gives its path.
     * @param hostSettings stands behind the settings of the host, and so overrides them
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

    /** Waits until the log holds a text; false when a quarter of a minute did not bring it. */
    bool logHolds(const std::string& text) const
    {
        return waitFor([&] { return logText().find(text) != std::string::npos; });
    }

    /** False when a quarter of a minute did not bring it. */
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
     * Whether the process has ended; wait() does not wait then. False if it has not within a quarter of a
     * minute.
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

    /** Runs the host with redirections or limits of the shell: "$0" "$@" stands for the host. */
    std::vector<std::string> shellCommand(const std::string& script,
                                          const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> words = {"/bin/sh", "-c", script};
        const std::vector<std::string> rest = command(arguments);
        words.insert(words.end(), rest.begin(), rest.end());
        return words;
    }

    /** The records of requests in all files of the log's folder. */
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

    /** Expects that the files have each record of a request that the host has counted, and none twice. */
    void expectEachAnswerOnce(const support::ChildProcess& host) const
    {
        const std::vector<std::string> records = answers();
        EXPECT_EQ(std::set<std::string>(records.begin(), records.end()).size(), records.size()) << "twice";
        EXPECT_EQ(tableRow(host.output(), "records of sources written"), records.size());
    }

    /** The number in the row of that label, a very large one when there is no such row. */
    static std::size_t tableRow(const std::string& output, const std::string& label)
    {
        const std::size_t row = output.find("  " + label + ' ');
        return row != std::string::npos ? std::stoul(output.substr(row + label.size() + 2))
                                        : std::string::npos;
    }

    /** Runs to the end and expects one line on standard error and status 2. */
    void expectRefused(const std::vector<std::string>& arguments, const std::string& line) const
    {
        support::ChildProcess host(command(arguments), scratch.path());
        EXPECT_EQ(host.wait(), 2);
        EXPECT_EQ(host.errors(), line + "\n");
        EXPECT_EQ(host.output(), "");
    }

    support::ScratchFolder scratch;
};

#endif
