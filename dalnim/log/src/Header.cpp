#include <dalnim/dalbase.hpp>

#include <dalnim/log/Header.hpp>

#include <dalnim/log/src/ForwardingBuffer.hpp>
#include <dalnim/log/src/RecordBuffer.hpp>
#include <dalnim/log/src/SourcePosition.hpp>
#include <dalnim/log/src/SpareHeaders.hpp>
#include <dalnim/log/src/StatementClock.hpp>
#include <dalnim/log/src/StreamState.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <locale>
#include <new>
#include <typeinfo>

namespace com::kor::dal::nim::log {

Header::Header(Severity sev, const char* source_file, unsigned int source_line)
    : std::ostringstream(std::ios_base::out), severity(sev), copied(false), file(source_file),
      line(source_line), thread(sys::System::threadId()), when(), buffer(std::make_unique<RecordBuffer>()),
      forwarder(std::make_unique<ForwardingBuffer>(*std::ostringstream::rdbuf()))
{
    StatementClock::read(when);
    std::ios::rdbuf(forwarder.get());
}

Header::Header(Origin, Severity sev, const SourcePosition& position)
    : std::ostringstream(std::ios_base::out), severity(sev), copied(false), file(position.file),
      line(position.line), thread(sys::System::threadId()), when(), baseName(position.baseName),
      buffer(std::make_unique<RecordBuffer>()), initialState(connectBuffer())
{
    StatementClock::read(when);
}

std::unique_ptr<StreamState> Header::connectBuffer()
{
    std::ios::rdbuf(buffer.get());
    return std::make_unique<StreamState>(*this);
}

Header::~Header()
{
    // Callbacks of user code run in the destructor of the stream.
    std::ios::rdbuf(std::ostringstream::rdbuf());
}

String Header::str() const
{
    return forwarder != nullptr ? std::ostringstream::str() : String(buffer->text());
}

void Header::str(const String& text)
{
    if (forwarder != nullptr) {
        std::ostringstream::str(text);
        forwarder->reset();
    } else {
        buffer->assign(text);
    }
}

String Header::getSeverityName() const
{
    return log::getSeverityName(severity);
}

std::string_view Header::text() const
{
    return lineBuffer().text();
}

RecordBuffer& Header::lineBuffer() const
{
    if (forwarder != nullptr) {
        buffer->assign(std::ostringstream::str());
    }
    return *buffer;
}

void Header::throwIfTruncatedWhenBad() const
{
    if (forwarder != nullptr ? forwarder->isTruncated() : buffer->isTruncated()) {
        throw std::bad_alloc();
    }
}

void Header::copyToStringStream()
{
    if (forwarder == nullptr) {
        copied = true;
        std::ostringstream::str(String(buffer->text()));
    }
}

void Header::reset() noexcept
{
    if (copied) {
        copied = false;
        std::ostringstream::str(String());
    }
    initialState->restore();
    buffer->reset();
}

void Header::start(Severity sev, const SourcePosition& position)
{
    if (__builtin_expect(SpareHeaders::isRestricted(), false)) {
        followLocale(SpareHeaders::locale());
    } else {
        followLocale(std::locale());
    }
    thread = sys::System::threadId();
    severity = sev;
    file = position.file;
    line = position.line;
    baseName = position.baseName;
    StatementClock::read(when);
}

void Header::followLocale(const std::locale& global)
{
    if (global != initialState->locale()) {
        initialState->setLocale(global);
    }
}

std::ostream& Header::insertTrapped(const std::exception& exc, const char* msg)
{
    std::ostream& stream = os();
    stream << msg << TERMINATOR;
    const auto* const error = dynamic_cast<const sys::system_error*>(&exc);
    if (error != nullptr) {
        // Decimal, whatever base the statement has selected.
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
