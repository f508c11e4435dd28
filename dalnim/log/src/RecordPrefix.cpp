#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordPrefix.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/log/src/DecimalDigits.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/log/src/StatementClock.hpp>
#include <dalnim/sys/internal/Internal.hpp>

#include <cstring>

namespace com::kor::dal::nim::log {

namespace {

constexpr std::size_t FIELD_COUNT = 9;
constexpr std::size_t NUMBER_COUNT = 3;

/** Writes the fields from the last to the first, so that their end is known before their lengths. */
class BackwardWriter
{
public:
    explicit BackwardWriter(char* end) noexcept : position(end), lastFieldEnd(nullptr) {}

    char* begin() const noexcept
    {
        return position;
    }
    void putTerminator() noexcept
    {
        put(std::string_view(TERMINATOR, TERMINATOR_LENGTH));
        lastFieldEnd = position;
    }
    void putField(std::string_view text) noexcept
    {
        putSeparator();
        put(text);
    }
    template <class Number>
    void putNumber(Number number) noexcept
    {
        putSeparator();
        position = DecimalDigits::writeBefore(position, number);
    }

private:
    void putSeparator() noexcept
    {
        if (position != lastFieldEnd) {
            *--position = SEPARATOR[0];
        }
    }
    void put(std::string_view text) noexcept
    {
        position -= text.size();
        std::memcpy(position, text.data(), text.size());
    }

    char* position;
    const char* lastFieldEnd;
};

}

RecordPrefix::RecordPrefix(unsigned int format, const Module& mod, const Header& rec, bool escapesControls)
    : mask(format), bound(FIELD_COUNT + NUMBER_COUNT * DecimalDigits::MAX_LENGTH + TERMINATOR_LENGTH),
      record(rec)
{
    if ((mask & Mask_DATETIME) != 0) {
        const TimeFormat timeFormat = PrefixFormat::timeFormat(format);
        if (__builtin_expect(timeFormat == TimeFormat_LOCAL, true)) {
            date.emplace(rec.getWhen());
        } else {
            date.emplace(timeFormat, rec.getWhen(), StatementClock::microseconds(rec.when));
        }
        count(date->view());
    }
    if ((mask & Mask_HOSTNAME) != 0) {
        host = count(sys::internal::host_name_text());
    }
    if ((mask & Mask_PROCESSNAME) != 0) {
        process = count(sys::internal::process_name_text());
    }
    if ((mask & Mask_MODULENAME) != 0) {
        module = mod.getName();
        if (escapesControls && needsEscape(module)) {
            LineBuffer line;
            appendEscaped(line, module);
            escapedModule = line.view();
            module = escapedModule;
        }
        count(module);
    }
    if ((mask & Mask_SEVERITY) != 0) {
        severity = count(severityText(rec.getSeverityId()));
    }
    if ((mask & Mask_SOURCEFILE) != 0) {
        sourceFile =
            count(rec.baseName.data() != nullptr ? rec.baseName : Statement::baseName(rec.getFile()));
    }
}

char* RecordPrefix::writeBefore(char* end) const noexcept
{
    BackwardWriter out(end);
    out.putTerminator();
    if ((mask & Mask_LINENUMBER) != 0) {
        out.putNumber(record.getLine());
    }
    if ((mask & Mask_SOURCEFILE) != 0) {
        out.putField(sourceFile);
    }
    if ((mask & Mask_SEVERITY) != 0) {
        out.putField(severity);
    }
    if ((mask & Mask_MODULENAME) != 0) {
        out.putField(module);
    }
    if ((mask & Mask_THREADID) != 0) {
        out.putNumber(record.getThread());
    }
    if ((mask & Mask_PROCESSID) != 0) {
        out.putNumber(getProcessId());
    }
    if ((mask & Mask_PROCESSNAME) != 0) {
        out.putField(process);
    }
    if ((mask & Mask_HOSTNAME) != 0) {
        out.putField(host);
    }
    if (date) {
        out.putField(date->view());
    }
    return out.begin();
}

void RecordPrefix::appendTo(LineBuffer& line) const
{
    line.appendWith(bound, [this](char* memory) {
        char* const end = memory + bound;
        const char* const begin = writeBefore(end);
        const auto length = static_cast<std::size_t>(end - begin);
        std::memmove(memory, begin, length);
        return length;
    });
}

}
