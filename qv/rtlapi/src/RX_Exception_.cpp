#include <qv/rtlapi/RX_Exception_.hpp>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include <qv/pmx/errors.h>

/** A message chained behind an exception. */
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

/** Messages into which arguments are put; with any other the arguments stand behind the text. */
const char* findPattern(int code)
{
    switch (code) {
    case QV_RX_INDEX_RANGE:
        return "Index %1 is out of range, the size is %2";
    default:
        return nullptr;
    }
}

std::string textOf(int code)
{
    const char* const text = qv_si_strerror(code);
    return text != nullptr ? text : "Unknown error " + std::to_string(code);
}

std::string fillIn(std::string_view pattern, const RX_String* arguments)
{
    std::string text;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '%') {
            text += view(arguments[pattern[++i] - '1']);
        } else {
            text += pattern[i];
        }
    }
    return text;
}

std::string describe(int code, const RX_String* arguments)
{
    if (const char* const pattern = findPattern(code)) {
        return fillIn(pattern, arguments);
    }
    std::string text = textOf(code);
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

/** Appends one line to `text`, folded: the blanks at which it is folded go. */
void appendFolded(std::string& text, std::string_view line, std::size_t width)
{
    while (line.size() > width) {
        // The last blank that leaves no more than `width`, else the first one behind a longer word.
        const std::size_t begin = line.find_first_not_of(' ');
        std::size_t fold = line.rfind(' ', width);
        if (fold == std::string_view::npos || fold < begin) {
            fold = line.find(' ', std::max(width, begin));
        }
        const std::size_t rest = line.find_first_not_of(' ', fold);
        if (fold == std::string_view::npos || rest == std::string_view::npos) {
            break;
        }
        text += line.substr(0, line.find_last_not_of(' ', fold) + 1);
        text += '\n';
        line.remove_prefix(rest);
    }
    text += line;
}

std::string fold(std::string_view text, std::size_t width)
{
    std::string folded;
    for (;;) {
        const std::size_t end = text.find('\n');
        appendFolded(folded, text.substr(0, end), width);
        if (end == std::string_view::npos) {
            return folded;
        }
        folded += '\n';
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

// Also to itself: see deepCopy(). NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
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
    std::string text = describe(_code, _arguments);
    for (const Message* message = _next.get(); message != nullptr; message = message->next.get()) {
        text += '\n';
        text += describe(message->code, message->arguments);
    }
    if (width != 0) {
        text = fold(text, width);
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
    // The copy is complete before anything here is given up, also when `other` is this exception.
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
