// Mutations of properties files for PropertiesFuzzer.cpp. They are aware of lines, properties, escapes,
// pragmas, continuations, and the files that an input contains.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fuzz/support/Mutation.hpp>

namespace {

using namespace std::string_view_literals;

typedef std::vector<std::string> Lines;

Lines linesOf(const std::string& text)
{
    Lines lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end + 1 - start));
    }
    lines.push_back(text.substr(start));
    return lines;
}

class LineMutator
{
public:
    LineMutator(Choices& choice, Lines& text) : choices(choice), lines(text) {}

    void change()
    {
        const std::size_t at = choices.below(lines.size());
        std::string& line = lines[at];
        switch (choices.below(10)) {
        case 0:
        case 1:
            lines.insert(iteratorAt(at), newLine());
            break;
        case 2:
            lines.insert(iteratorAt(at), line);
            break;
        case 3:
            std::swap(line, lines[choices.below(lines.size())]);
            break;
        case 4:
            if (lines.size() > 1) {
                lines.erase(iteratorAt(at));
            }
            break;
        case 5:
            // The key of this line with the value of another one.
            line = line.substr(0, line.find('=')) + fromSeparator(lines[choices.below(lines.size())]);
            break;
        case 6:
            mutateBytes(line);
            break;
        default:
            line.insert(choices.below(line.size() + 1), token());
        }
    }

private:
    Lines::iterator iteratorAt(std::size_t at)
    {
        return lines.begin() + static_cast<std::ptrdiff_t>(at);
    }

    static std::string fromSeparator(const std::string& line)
    {
        const std::size_t separator = line.find('=');
        return separator == std::string::npos ? line : line.substr(separator);
    }

    std::string newLine()
    {
        switch (choices.below(8)) {
        case 0:
            return optionalWhiteSpace() + choices.oneOf({"#", "!"}) + word() + lineEnd();
        case 1:
            return optionalWhiteSpace() + lineEnd();
        case 2:
            return optionalWhiteSpace() + "%pragma" + whiteSpace() + "include" + whiteSpace() + file()
                   + optionalWhiteSpace() + lineEnd();
        case 3:
            return pragma();
        case 4:
            // Starts another file of the input.
            return "\x1c" + property();
        default:
            return property();
        }
    }

    std::string property()
    {
        std::string line = optionalWhiteSpace() + word() + separator();
        for (std::size_t words = choices.below(4); words > 0; --words) {
            line += choices.oneIn(3) ? "\\" + lineEnd() + optionalWhiteSpace() : "";
            line += choices.oneIn(2) ? word() : escape();
        }
        return line + optionalWhiteSpace() + lineEnd();
    }

    std::string pragma()
    {
        return "%" + choices.oneOf({"pragma", "pragma", "pragma", "Pragma", "", "x"}) + optionalWhiteSpace()
               + choices.oneOf({"severity", "severity", "severity", "include", "other", ""})
               + optionalWhiteSpace() + choices.oneOf({"error", "warning", "note", "none", "\"\"", "\"", ""})
               + optionalWhiteSpace() + choices.oneOf({"", "", "more"}) + lineEnd();
    }

    std::string file()
    {
        return choices.oneOf({"\"b.conf\"", "\"b.conf\"", "\"sub/c.conf\"", "\"sub/c.conf\"", "\"d.conf\"",
                              "\"c.conf\"", "\"../b.conf\"", "\"../d.conf\"", "\"./b.conf\"", "\"x.conf\"",
                              "\"sub//../b.conf\"", "\"/b.conf\"", "\"sub\"", "\"none\"", "\"\"", "b.conf"});
    }

    std::string word()
    {
        if (choices.oneIn(3)) {
            // A key of largeTable().
            return "k" + std::to_string(choices.below(2000));
        }
        return choices.oneOf({"a", "b", "key", "value", "com.kor.key", "x", "%", "#", "!", "\xff", "\x80\x81",
                              "\0"sv, "a\0b"sv, "7", "e9", ""});
    }

    std::string escape()
    {
        if (choices.oneIn(3)) {
            return "\\" + std::string(1, static_cast<char>(choices.below(256)));
        }
        return choices.oneOf(
            {"\\u0041", "\\u00fF", "\\u0100", "\\u12", "\\u004g", "\\x4", "\\x41", "\\x414", "\\x",
             "\\xg",    "\\0",     "\\101",   "\\377", "\\400",   "\\77", "\\8",   "\\t",    "\\n",
             "\\v",     "\\\\",    "\\=",     "\\:",   "\\ ",     "\\#",  "\\\r",  "\\U0041"});
    }

    std::string separator()
    {
        return optionalWhiteSpace() + choices.oneOf({"=", "=", "=", ":", " ", "==", ":=", ""})
               + optionalWhiteSpace();
    }

    std::string lineEnd()
    {
        return choices.oneOf({"\n", "\n", "\n", "\n", "\r\n", "\n\n", "\r", "\\\n", "\\\r\n", ""});
    }

    std::string whiteSpace()
    {
        return choices.oneOf({" ", " ", "\t", "\v", "\f", "\r", "  \t"});
    }

    std::string optionalWhiteSpace()
    {
        return choices.oneIn(2) ? "" : whiteSpace();
    }

    std::string token()
    {
        switch (choices.below(7)) {
        case 0:
            return escape();
        case 1:
            return separator();
        case 2:
            return word();
        case 3:
            return whiteSpace();
        case 4:
            return "\\" + lineEnd() + optionalWhiteSpace();
        case 5:
            return choices.oneOf({"%", "%pragma ", "#", "!", "\"", "\\", "\x1c", "\0"sv});
        default:
            return lineEnd();
        }
    }

    Choices& choices;
    Lines& lines;
};

}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned int seed)
{
    Choices choices(seed);
    if (size == 0 || choices.oneIn(5)) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    if (choices.oneIn(10)) {
        data[0] = static_cast<std::uint8_t>(choices.below(256));
    }
    Lines lines = linesOf(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    LineMutator mutator(choices, lines);
    for (std::size_t changes = 1 + choices.below(3); changes > 0; --changes) {
        mutator.change();
    }
    std::string input(1, static_cast<char>(data[0]));
    for (const std::string& line : lines) {
        input += line;
    }
    return store(input, data, max_size);
}

/** Selects each line at random from one of the two inputs. */
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data1, std::size_t size1,
                                                 const std::uint8_t* data2, std::size_t size2,
                                                 std::uint8_t* out, std::size_t max_out_size,
                                                 unsigned int seed)
{
    if (size1 == 0 || size2 == 0) {
        return 0;
    }
    Choices choices(seed);
    const Lines first = linesOf(std::string(reinterpret_cast<const char*>(data1) + 1, size1 - 1));
    const Lines second = linesOf(std::string(reinterpret_cast<const char*>(data2) + 1, size2 - 1));
    std::string input(1, static_cast<char>(data1[0]));
    for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
        const Lines& chosen = choices.oneIn(2) ? first : second;
        input += i < chosen.size() ? chosen[i] : "";
    }
    return store(input, out, max_out_size);
}
