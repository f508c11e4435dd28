#ifndef TESTS_IO_PROPERTIESMODEL_HPP
#define TESTS_IO_PROPERTIESMODEL_HPP

#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace propertiestest {

/**
 * The properties format once more, as plainly as it can be told: a byte after the other, a line after
 * the other. It knows includes of the file itself only; every other one cannot be opened.
 */
class Model
{
public:
    std::map<std::string, std::string> table;
    std::string warnings;
    /** Empty if the text is well-formed. */
    std::string error;

    Model(const std::string& text, const std::string& file_folder, const std::string& file_name,
          bool report_all, bool keep_ws)
        : folder(file_folder), name(file_name), report(report_all), keep(keep_ws)
    {
        cutIntoLines(text);
        while (next < lines.size() && error.empty()) {
            readLogicalLine();
        }
    }

private:
    /** A decoded byte, and whether it counts as white space when the end is trimmed. */
    struct Byte
    {
        char value;
        bool trimmed;
    };

    static bool isSpace(char c)
    {
        return c != 0 && std::strchr(" \t\n\v\f\r", c) != nullptr;
    }

    static int digit(char c, int base)
    {
        const char* const digits = "0123456789abcdef";
        const char* const found =
            c == 0 ? nullptr : std::strchr(digits, std::tolower(static_cast<unsigned char>(c)));
        const int value = found == nullptr ? base : static_cast<int>(found - digits);
        return value < base ? value : -1;
    }

    void cutIntoLines(const std::string& text)
    {
        lines.emplace_back();
        for (const char c : text) {
            if (c == '\n') {
                lines.emplace_back();
            } else {
                lines.back() += c;
            }
        }
        if (lines.back().empty()) {
            lines.pop_back();
        }
    }

    void fail(const std::string& text)
    {
        error = "ERROR: " + name + ":" + std::to_string(next) + ": " + text;
    }

    void readLogicalLine()
    {
        std::vector<Byte> logical;
        bool continued = false;
        do {
            const bool continuation = continued;
            continued = false;
            if (next == lines.size()) {
                break;
            }
            std::string line = lines[next++];
            while (!line.empty() && isSpace(line[0])) {
                line.erase(0, 1);
            }
            if (line.empty() || (!continuation && (line[0] == '#' || line[0] == '!'))) {
                break;
            }
            if (line[0] == '%') {
                if (!continuation) {
                    readPragma(line);
                }
                break;
            }
            continued = decode(line, logical);
        } while (continued && error.empty());

        if (error.empty() && !logical.empty()) {
            split(logical);
        }
    }

    bool decode(const std::string& line, std::vector<Byte>& logical)
    {
        const auto put = [&logical](int value) { logical.push_back({static_cast<char>(value), false}); };
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] != '\\') {
                logical.push_back({line[i], isSpace(line[i])});
                continue;
            }
            if (++i == line.size()) {
                return true;
            }
            static const std::map<char, int> letters = {{'a', 7},  {'b', 8},  {'f', 12}, {'n', 10},
                                                        {'r', 13}, {'t', 9}, {'v', 11}};
            const auto letter = letters.find(line[i]);
            if (letter != letters.end()) {
                put(letter->second);
            } else if (line[i] == 'u') {
                const std::string digits = line.substr(i + 1, 4);
                if (digits.size() < 4) {
                    fail("End-of-line encountered in unicode escape sequence.");
                    return false;
                }
                int value = 0;
                for (const char c : digits) {
                    if (digit(c, 16) < 0) {
                        fail("Invalid unicode escape sequence '\\u" + digits + "'.");
                        return false;
                    }
                    value = value * 16 + digit(c, 16);
                }
                if (value > 255) {
                    fail("Unicode escape sequence '\\u" + digits +
                         "' exceeds capacity of single byte character.");
                    return false;
                }
                put(value);
                i += 4;
            } else if (line[i] == 'x') {
                if (i + 1 == line.size()) {
                    fail("End-of-line encountered in hex escape sequence.");
                    return false;
                }
                int value = digit(line[++i], 16);
                if (value < 0) {
                    fail(std::string("Invalid hex escape sequence '\\x") + line[i] + "'.");
                    return false;
                }
                if (i + 1 < line.size() && digit(line[i + 1], 16) >= 0) {
                    value = value * 16 + digit(line[++i], 16);
                }
                put(value);
            } else if (digit(line[i], 8) >= 0) {
                int value = digit(line[i], 8);
                for (int more = line[i] <= '3' ? 2 : 1; more > 0; --more) {
                    if (i + 1 == line.size() || digit(line[i + 1], 8) < 0) {
                        break;
                    }
                    value = value * 8 + digit(line[++i], 8);
                }
                put(value);
            } else {
                logical.push_back({line[i], false});
            }
        }
        return false;
    }

    void split(const std::vector<Byte>& logical)
    {
        std::string text;
        std::size_t significant = 0;
        for (const Byte& byte : logical) {
            text += byte.value;
            if (!byte.trimmed) {
                significant = text.size();
            }
        }
        if (!keep) {
            text.resize(significant);
        }

        std::size_t i = 0;
        std::string key;
        while (i < text.size() && !isSpace(text[i]) && text[i] != '=' && text[i] != ':') {
            key += text[i++];
        }
        while (i < text.size() && isSpace(text[i])) {
            ++i;
        }
        if (i < text.size() && (text[i] == '=' || text[i] == ':')) {
            ++i;
            while (i < text.size() && isSpace(text[i])) {
                ++i;
            }
        }
        if (table.count(key) != 0 && report) {
            warnings +=
                "WARNING: " + name + ":" + std::to_string(next) + ": Overriding property \"" + key + "\"\n";
        }
        table[key] = text.substr(i);
    }

    void readPragma(const std::string& line)
    {
        std::size_t i = 1;
        const auto word = [&line, &i] {
            std::string result;
            while (i < line.size() && !isSpace(line[i])) {
                result += line[i++];
            }
            return result;
        };
        const auto space = [&line, &i] {
            while (i < line.size() && isSpace(line[i])) {
                ++i;
            }
        };
        if (word() != "pragma" || i == line.size()) {
            return;
        }
        space();
        const std::string command = word();
        if (i == line.size()) {
            fail("unknown %pragma command: \"" + command + "\"");
            return;
        }
        space();
        const std::string argument = word();
        space();
        if (i != line.size()) {
            fail("invalid number of args for %pragma command");
        } else if (command == "severity") {
            if (argument != "error" && argument != "warning" && argument != "note") {
                fail("invalid arg for %pragma severity: \"" + argument + "\"");
            } else {
                report = argument != "error";
            }
        } else if (command == "include") {
            if (argument.size() < 2 || argument[0] != '"' || argument[argument.size() - 1] != '"') {
                fail("invalid arg for %pragma include: \"" + argument + "\"");
            } else if (argument != "\"" + name + "\"") {
                fail("failed to open include file: \"" + folder + argument.substr(1, argument.size() - 2) +
                     "\"");
            }
        } else {
            fail("unknown %pragma command: \"" + command + "\"");
        }
    }

    std::string folder;
    std::string name;
    bool report;
    bool keep;
    std::vector<std::string> lines;
    /** The number of lines read, and so of the line read last. */
    std::size_t next = 0;
};

}

#endif
