#include <dalnim/dalbase.hpp>

#include <dalnim/log/Header.hpp>

#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <ctime>
#include <typeinfo>

namespace com::kor::dal::nim::log {

Header::Header(Severity sev, const char* source_file, unsigned int source_line)
    : std::ostringstream(std::ios_base::out), severity(sev), file(source_file), line(source_line),
      thread(sys::System::threadId()), when(std::time(nullptr))
{
}

Header::~Header() = default;

String Header::getSeverityName() const
{
    return log::getSeverityName(severity);
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
