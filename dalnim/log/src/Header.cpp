#include <dalnim/dalbase.hpp>

#include <dalnim/log/Header.hpp>

#include <dalnim/log/src/SpareHeaders.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <locale>
#include <new>
#include <typeinfo>

namespace com::kor::dal::nim::log {

namespace {

/**
 * The area of output of a stream buffer. It is its subclasses' own; its members can be named in one of
 * them only.
 */
struct Area : std::stringbuf
{
    static const char* begin(const std::stringbuf& buffer)
    {
        return (buffer.*&Area::pbase)();
    }
    static const char* position(const std::stringbuf& buffer)
    {
        return (buffer.*&Area::pptr)();
    }
    /** Behind the position of output there is more text when the statement has gone back in it. */
    static const char* endOfText(const std::stringbuf& buffer)
    {
        return std::max<const char*>(position(buffer), (buffer.*&Area::egptr)());
    }
    static const char* end(const std::stringbuf& buffer)
    {
        return (buffer.*&Area::epptr)();
    }
};

/** One byte more than a string without memory of its own has room for. */
constexpr char FIRST_TEXT[] = "0123456789abcdef";

}

Header::Header(Severity sev, const char* source_file, unsigned int source_line)
    : std::ostringstream(std::ios_base::out), severity(sev), file(source_file), line(source_line),
      thread(sys::System::threadId()), when(std::time(nullptr))
{
    // Takes the memory for a text of the usual length now: see throwIfCut().
    rdbuf()->sputn(FIRST_TEXT, sizeof FIRST_TEXT - 1);
    str(String());
}

Header::~Header() = default;

String Header::getSeverityName() const
{
    return log::getSeverityName(severity);
}

std::string_view Header::text() const noexcept
{
    const std::stringbuf& buffer = *rdbuf();
    const char* const first = Area::begin(buffer);
    return std::string_view(first, static_cast<std::size_t>(Area::endOfText(buffer) - first));
}

void Header::throwIfCut() const
{
    // The stream swallows the exception of a text that finds no memory to grow, and shows it as it shows
    // a null pointer for a text. But only the former leaves the area full to its last byte; the latter
    // does where it comes behind just so many bytes, 512 or twice that once or several times, and is
    // taken for it there.
    if (Area::position(*rdbuf()) == Area::end(*rdbuf())) {
        throw std::bad_alloc();
    }
}

bool Header::restore() noexcept
{
    // A longer text than records usually have gives its memory back.
    constexpr std::ptrdiff_t KEPT_SIZE = 4096;
    const std::ios& base = *this;
    if (base.rdbuf() != rdbuf() || Area::end(*rdbuf()) - Area::begin(*rdbuf()) > KEPT_SIZE) {
        return false;
    }
    // What users of the stream have hung onto it: nothing but its end tells them that it has ended.
    if (_M_callbacks != nullptr || _M_word != _M_local_word) {
        return false;
    }
    for (const _Words& word : _M_local_word) {
        if (word._M_iword != 0 || word._M_pword != nullptr) {
            return false;
        }
    }
    if (!good()) {
        clear();
    }
    if (exceptions() != std::ios_base::goodbit) {
        exceptions(std::ios_base::goodbit);
    }
    flags(std::ios_base::skipws | std::ios_base::dec);
    precision(6);
    width(0);
    fill(' ');
    tie(nullptr);
    str(String());
    return true;
}

bool Header::renew(Severity sev, const char* source_file, unsigned int source_line)
{
    if (__builtin_expect(SpareHeaders::isRestricted(), false)) {
        SpareHeaders::imbue(*this);
    } else if (getloc() != std::locale()) {
        return false;
    }
    thread = sys::System::threadId();
    severity = sev;
    file = source_file;
    line = source_line;
    when = std::time(nullptr);
    return true;
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
