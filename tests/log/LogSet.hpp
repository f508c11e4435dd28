#ifndef TESTS_LOG_LOGSET_HPP
#define TESTS_LOG_LOGSET_HPP

#include "LogFileFixture.hpp"

#include <support/LongRun.hpp>
#include <support/StandardErrorTo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <vector>

/** Reading what a logger has left behind in a file and its old ones. */
namespace logfiletest {

/** Discards standard error: the rotations of a long run print many traces. */
class Silence
{
    struct Nothing : std::streambuf
    {
        int_type overflow(int_type byte) override
        {
            return traits_type::not_eof(byte);
        }
        std::streamsize xsputn(const char*, std::streamsize count) override
        {
            return count;
        }
    };

    Nothing nothing;
    const support::StandardErrorTo elsewhere{&nothing};
};

/** The numbers of the old files of `path`, the oldest file first. */
inline std::vector<unsigned long> oldNumbers(const String& path)
{
    const std::filesystem::path live(path);
    const String prefix = live.filename().string() + '.';
    std::vector<unsigned long> numbers;
    for (const String& name : namesIn(live.parent_path())) {
        if (name.compare(0, prefix.size(), prefix) == 0) {
            numbers.push_back(std::stoul(name.substr(prefix.size())));
        }
    }
    std::sort(numbers.rbegin(), numbers.rend());
    return numbers;
}

/** What the files of a set hold, in the order in which it was written. */
inline String wholeLog(const String& path)
{
    String text;
    for (const unsigned long number : oldNumbers(path)) {
        text += contentOf(path + '.' + std::to_string(number));
    }
    return exists(path) ? text + contentOf(path) : text;
}

/** Calls `visit` for each line up to the first failure; a rest without a newline is one. */
template <class Visit>
void forEachLine(std::string_view text, Visit visit)
{
    while (!text.empty() && !testing::Test::HasFailure()) {
        const std::size_t end = text.find('\n');
        ASSERT_NE(std::string_view::npos, end) << "cut: " << text;
        visit(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
}

/** The records "thread number ..." of several threads, each of which is to come once and in order. */
template <unsigned int THREADS>
class Sequences
{
public:
    /** Parses a line "[prefix]thread number", which may be followed by a space and more. */
    void take(std::string_view line, const char* prefix = "")
    {
        unsigned int t = THREADS;
        unsigned int n = 0;
        const String text(line);
        ASSERT_EQ(2, std::sscanf(text.c_str(), (String(prefix) + "%u %u").c_str(), &t, &n)) << text;
        ASSERT_LT(t, THREADS) << text;
        ASSERT_EQ(next[t], n) << "lost, twice, or not in order: " << text;
        ++next[t];
    }

    unsigned int count(unsigned int thread) const
    {
        return next[thread];
    }

private:
    unsigned int next[THREADS] = {};
};

}

#endif
