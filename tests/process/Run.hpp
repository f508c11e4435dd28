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

/** The thread sanitizer would have each process wait for a second before it ends. */
inline int makeHaste()
{
    const char* const options = std::getenv("TSAN_OPTIONS");
    const std::string hasty = std::string(options != nullptr ? options : "") + ":atexit_sleep_ms=0";
    return ::setenv("TSAN_OPTIONS", hasty.c_str(), 1);
}

/** A run of a program of these tests, at its end. */
struct Outcome
{
    explicit Outcome(const std::vector<std::string>& command)
    {
        static const int status_of_haste = makeHaste();
        static_cast<void>(status_of_haste);
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

/** What useLibrary() logs. */
inline Lines momentOf(const std::string& moment)
{
    return {moment + ": statement", moment + ": content", moment + ": thread", moment + ": task"};
}
inline Lines loadOf(const std::string& plugin)
{
    Lines lines = momentOf(plugin + " loads");
    lines.push_back(plugin + " is there");
    return lines;
}
inline Lines unloadOf(const std::string& plugin)
{
    Lines lines = momentOf(plugin + " unloads");
    lines.insert(lines.begin(), plugin + " goes");
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
