#ifndef TESTS_PROCESS_RUN_HPP
#define TESTS_PROCESS_RUN_HPP

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <cstdlib>
#include <string>
#include <vector>

namespace processtest {

typedef std::vector<std::string> Lines;

inline Lines linesOf(const std::string& text)
{
    Lines lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        lines.push_back(text.substr(begin, end - begin));
        begin = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

/** Returns the texts of the records in an output: the part of each line after the first " : ". */
inline Lines recordsIn(const std::string& text)
{
    Lines records;
    for (const std::string& line : linesOf(text)) {
        const std::size_t mark = line.find(" : ");
        if (mark != std::string::npos) {
            records.push_back(line.substr(mark + 3));
        }
    }
    return records;
}

/** Disables the delay of one second that the thread sanitizer adds to the exit of each process. */
inline int disableExitDelay()
{
    const char* const options = std::getenv("TSAN_OPTIONS");
    const std::string extended = std::string(options != nullptr ? options : "") + ":atexit_sleep_ms=0";
    return ::setenv("TSAN_OPTIONS", extended.c_str(), 1);
}

/** The result of a run of a program of these tests. */
struct Outcome
{
    explicit Outcome(const std::vector<std::string>& command)
    {
        static const int delay_status = disableExitDelay();
        static_cast<void>(delay_status);
        const support::ScratchFolder folder;
        support::ChildProcess process(command, folder.path());
        status = process.wait();
        output = process.output();
        errors = process.errors();
    }

    Lines records() const
    {
        return recordsIn(errors);
    }

    int status = -1;
    std::string output;
    std::string errors;
};

/** Returns the records that useLibrary() logs. */
inline Lines recordsOfUse(const std::string& moment)
{
    return {moment + ": statement", moment + ": content", moment + ": thread", moment + ": task"};
}
inline Lines loadOf(const std::string& plugin)
{
    Lines lines = recordsOfUse(plugin + " loads");
    lines.push_back(plugin + " is loaded");
    return lines;
}
inline Lines unloadOf(const std::string& plugin)
{
    Lines lines = recordsOfUse(plugin + " unloads");
    lines.insert(lines.begin(), plugin + " is being unloaded");
    return lines;
}

inline Lines join(const std::vector<Lines>& parts)
{
    Lines all;
    for (const Lines& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

}

#endif
