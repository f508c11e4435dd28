#ifndef DALNIM_LOG_SRC_FILETRACE_HPP
#define DALNIM_LOG_SRC_FILETRACE_HPP

#include <dalnim/log/src/LineText.hpp>

#include <exception>
#include <iostream>
#include <new>
#include <string_view>
#include <type_traits>

namespace com::kor::dal::nim::log {

/** The diagnostics of log files on standard error, each in one piece. */
class FileTrace
{
public:
    FileTrace() = delete;

    /**
     * Tells `parts`, texts and numbers, of a function at a line. No failure leaves it: what it tells of
     * goes on, also where standard error raises its failures, or there is no memory for a trace of more
     * than the usual length, which then comes in several pieces.
     */
    template <class... Parts>
    static void tell(unsigned int line, const char* function, const Parts&... parts)
    {
        tellParts("LogFile:", line, ":", function, "(): ", parts..., "\n");
    }

private:
    template <class... Parts>
    static void tellParts(const Parts&... parts)
    {
        try {
            try {
                LineText message;
                (append(message, parts), ...);
                write(message.view());
            } catch (const std::bad_alloc&) {
                (writePart(parts), ...);
            }
            std::cerr.flush();
        } catch (const std::exception&) {
            // There is no output that this one could be told on.
        }
    }

    template <class Part>
    static void append(LineText& message, const Part& part)
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
            LineText digits;
            write(digits.appendNumber(part).view());
        } else {
            write(std::string_view(part));
        }
    }

    static void write(std::string_view text)
    {
        std::cerr.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
};

}

#endif
