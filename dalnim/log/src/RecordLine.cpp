#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordLine.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/RecordBuffer.hpp>
#include <dalnim/log/src/RecordPrefix.hpp>

namespace com::kor::dal::nim::log {

void RecordLine::format(unsigned int prefixFormat, bool escapesControls)
{
    restoreText();
    if (escapesControls) {
        formatEscaped(prefixFormat);
        return;
    }
    const RecordPrefix prefix(prefixFormat, module, record, false);
    RecordBuffer& memory = record.lineBuffer();
    char* const text = memory.reserveFront(prefix.maxLength());
    end = trimmedLength(memory.text(), 0);
    buffer = &memory;
    replaced = memory.exchange(end, '\n');
    const char* const begin = prefix.writeBefore(text);
    line = std::string_view(begin, static_cast<std::size_t>(text - begin) + end + 1);
}

void RecordLine::formatEscaped(unsigned int prefixFormat)
{
    escaped.truncate(0);
    RecordPrefix(prefixFormat, module, record, true).appendTo(escaped);
    const std::size_t prefixLength = escaped.view().size();
    // Trimmed before it is escaped: escaped white space would not be removed.
    const std::string_view text = record.text();
    appendEscaped(escaped, text.substr(0, trimmedLength(text, 0)));
    terminateLine(escaped, prefixLength);
    line = escaped.view();
}

void RecordLine::restoreText() noexcept
{
    if (buffer != nullptr) {
        buffer->exchange(end, replaced);
        buffer = nullptr;
    }
}

}
