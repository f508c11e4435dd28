#ifndef DALNIM_LOG_SRC_FILETRACE_HPP
#define DALNIM_LOG_SRC_FILETRACE_HPP

#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/RecordPriority.hpp>
#include <dalnim/log/src/StreamOutput.hpp>

#include <iostream>
#include <new>
#include <string_view>
#include <type_traits>

namespace com::kor::dal::nim::log {

/** The diagnostics of log files on standard error, each written in one piece. */
class FileTrace
{
public:
    FileTrace() = delete;

    /**
     * Prints one trace line built from `parts` (strings and integers). Never throws: if memory runs out for a
     * line of more than the usual length, it is written in several pieces.
     */
    template <Severity SEVERITY = Severity_INFO, class... Parts>
    static void print(unsigned int line, const char* function, const Parts&... parts)
    {
        const RecordPriority priority(SEVERITY);
        printParts("LogFile:", line, ":", function, "(): ", parts..., "\n");
    }

private:
    template <class... Parts>
    static void printParts(const Parts&... parts)
    {
        try {
            LineBuffer message;
            (append(message, parts), ...);
            StreamOutput::write(std::cerr, message.view());
        } catch (const std::bad_alloc&) {
            (writePart(parts), ...);
        }
    }

    template <class Part>
    static void append(LineBuffer& message, const Part& part)
    {
        if constexpr (std::is_integral_v<Part>) {
            message.appendNumber(part);
        } else {
            message.append(std::string_view(part));
        }
    }

    template <class Part>
    static void writePart(const Part& part)
    {
        if constexpr (std::is_integral_v<Part>) {
            LineBuffer digits;
            write(digits.appendNumber(part).view());
        } else {
            write(std::string_view(part));
        }
    }

    static void write(std::string_view text)
    {
        StreamOutput::writePart(std::cerr, text);
    }
};

}

#endif
