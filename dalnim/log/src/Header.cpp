#include <dalnim/dalbase.hpp>

#include <dalnim/log/Header.hpp>

#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <algorithm>
#include <ctime>
#include <typeinfo>

namespace com::kor::dal::nim::log {

Header::Header(Severity sev, const char* source_file, unsigned int source_line)
    : std::ostringstream(std::ios_base::out), severity(sev), file(source_file), line(source_line),
      thread(sys::System::threadId()), when(std::time(nullptr))
{}

Header::~Header() = default;

String Header::getSeverityName() const
{
    return log::getSeverityName(severity);
}

std::string_view Header::text() const noexcept
{
    // The area of a stream buffer is its subclasses' own; its members can be named in one of them only.
    struct Area : std::stringbuf
    {
        static const char* begin(const std::stringbuf& buffer)
        {
            return (buffer.*&Area::pbase)();
        }
        static const char* end(const std::stringbuf& buffer)
        {
            // Behind the position of output there is more text when the statement has gone back in it.
            return std::max((buffer.*&Area::pptr)(), (buffer.*&Area::egptr)());
        }
    };
    const std::stringbuf& buffer = *rdbuf();
    const char* const first = Area::begin(buffer);
    return first == nullptr ? std::string_view()
                            : std::string_view(first, static_cast<std::size_t>(Area::end(buffer) - first));
}

std::ostream& Header::insertTrapped(const std::exception& exc, const char* msg)
{
    std::ostream& stream = os();
    stream << msg << TERMINATOR;
    const auto* const error = dynamic_cast<const sys::system_error*>(&exc);
    if (error != nullptr) {
        // Whatever the statement has set on the stream, the number is a decimal one.
        stream << std::to_string(error->error()) << TERMINATOR;
    }
    stream << exc.what() << '\n';

    if (severity == Severity_DEBUG) {
        stream << "  " << typeid(exc).name() << '\n';
    }
    if (severity == Severity_INFO) {
        return stream;
    }
    const sys::StackTrace* const trace =
        error != nullptr ? error : dynamic_cast<const sys::StackTrace*>(&exc);
    if (trace != nullptr && !trace->empty()) {
        stream << *trace;
    }
    return stream;
}

std::ostream& Header::insertTrapped(const std::exception& exc, const String& msg)
{
    return insertTrapped(exc, msg.c_str());
}

}
