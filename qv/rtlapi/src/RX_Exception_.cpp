#include <qv/rtlapi/RX_Exception_.hpp>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include <qv/pmx/errors.h>

/** A chained message. */
struct RX_Exception_::Message
{
    int code;
    RX_String arguments[ARGUMENTS];
    std::unique_ptr<Message> next;
};

namespace {

std::string_view view(const RX_String& string)
{
    return {string.data(), string.length()};
}

/**
 * Returns the message with placeholders for its arguments, or null: the arguments are then appended to the
 * message.
 */
const char* findTemplate(int code)
{
    switch (code) {
    case QV_RX_INDEX_RANGE:
        return "Index %1 is out of range, the size is %2";
    default:
        return nullptr;
    }
}

std::string messageOf(int code)
{
    const char* const text = qv_si_strerror(code);
    return text != nullptr ? text : "Unknown error " + std::to_string(code);
}

std::string substituteArguments(std::string_view messageTemplate, const RX_String* arguments)
{
    std::string text;
    for (std::size_t i = 0; i < messageTemplate.size(); ++i) {
        if (messageTemplate[i] == '%') {
            text += view(arguments[messageTemplate[++i] - '1']);
        } else {
            text += messageTemplate[i];
        }
    }
    return text;
}

std::string format(int code, const RX_String* arguments)
{
    if (const char* const messageTemplate = findTemplate(code)) {
        return substituteArguments(messageTemplate, arguments);
    }
    std::string text = messageOf(code);
    const char* separator = ": ";
    for (unsigned int i = 0; i < RX_Exception_::ARGUMENTS; ++i) {
        if (arguments[i].length() != 0) {
            text += separator;
            text += view(arguments[i]);
            separator = ", ";
        }
    }
    return text;
}

/** Appends one line to `text`, wrapped. Removes the spaces at which it is wrapped. */
void appendWrapped(std::string& text, std::string_view line, std::size_t width)
{
    while (line.size() > width) {
        // The last space within `width`, otherwise the first one after a longer word.
        const std::size_t begin = line.find_first_not_of(' ');
        std::size_t breakAt = line.rfind(' ', width);
        if (breakAt == std::string_view::npos || breakAt < begin) {
            breakAt = line.find(' ', std::max(width, begin));
        }
        const std::size_t rest = line.find_first_not_of(' ', breakAt);
        if (breakAt == std::string_view::npos || rest == std::string_view::npos) {
            break;
        }
        text += line.substr(0, line.find_last_not_of(' ', breakAt) + 1);
        text += '\n';
        line.remove_prefix(rest);
    }
    text += line;
}

std::string wrap(std::string_view text, std::size_t width)
{
    std::string wrapped;
    for (;;) {
        const std::size_t end = text.find('\n');
        appendWrapped(wrapped, text.substr(0, end), width);
        if (end == std::string_view::npos) {
            return wrapped;
        }
        wrapped += '\n';
        text.remove_prefix(end + 1);
    }
}

}

RX_Exception_::RX_Exception_(unsigned int line, const RX_String& file, int code, const RX_String& a1,
                             const RX_String& a2, const RX_String& a3, const RX_String& a4,
                             const RX_String& a5, const RX_String& a6)
    : _line(line), _file(file), _code(code), _arguments{a1, a2, a3, a4, a5, a6}
{
}

RX_Exception_::RX_Exception_(const RX_Exception_& other) : _line(0), _code(0)
{
    deepCopy(other);
}

RX_Exception_::~RX_Exception_() = default;

// Handles self-assignment: see deepCopy(). NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
RX_Exception_& RX_Exception_::operator=(const RX_Exception_& other)
{
    deepCopy(other);
    return *this;
}

const RX_String& RX_Exception_::getArgument(unsigned int index) const noexcept
{
    return index < ARGUMENTS ? _arguments[index] : RX_String::none;
}

RX_Exception_& RX_Exception_::chain(int code, const RX_String& a1, const RX_String& a2, const RX_String& a3,
                                    const RX_String& a4, const RX_String& a5, const RX_String& a6)
{
    std::unique_ptr<Message>* last = &_next;
    while (*last) {
        last = &(*last)->next;
    }
    last->reset(new Message{code, {a1, a2, a3, a4, a5, a6}, nullptr});
    return *this;
}

RX_String RX_Exception_::asString(unsigned int width) const
{
    std::string text = format(_code, _arguments);
    for (const Message* message = _next.get(); message != nullptr; message = message->next.get()) {
        text += '\n';
        text += format(message->code, message->arguments);
    }
    if (width != 0) {
        text = wrap(text, width);
    }
    return RX_String(text.data(), text.size());
}

void RX_Exception_::copyData(const RX_Exception_& other) noexcept
{
    _line = other._line;
    _file = other._file;
    _code = other._code;
    for (unsigned int i = 0; i < ARGUMENTS; ++i) {
        _arguments[i] = other._arguments[i];
    }
}

void RX_Exception_::deepCopy(const RX_Exception_& other)
{
    // Copies everything before it modifies this exception: the copy may throw, and `other` may be this
    // exception.
    std::unique_ptr<Message> copied;
    std::unique_ptr<Message>* last = &copied;
    for (const Message* message = other._next.get(); message != nullptr; message = message->next.get()) {
        const RX_String* const a = message->arguments;
        last->reset(new Message{message->code, {a[0], a[1], a[2], a[3], a[4], a[5]}, nullptr});
        last = &(*last)->next;
    }
    copyData(other);
    _next = std::move(copied);
}
