#ifndef TESTS_IO_PROPERTIESMODEL_HPP
#define TESTS_IO_PROPERTIESMODEL_HPP

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace propertiestest {

/**
 * A model of the properties format in its simplest form: byte by byte, line by line, and a recursion for each
 * included file.
 */
class Model
{
public:
    typedef std::map<std::string, std::string> Table;

    Table table;
    std::string warnings;
    /** The message, or empty if the text is well-formed. */
    std::string error;
    /** Whether there were too many includes for the model. The rest is then meaningless. */
    bool gaveUp = false;

    /** Loads the text of a file into a table that contains `before`. */
    Model(const std::string& text, const std::string& directory, const std::string& name, bool report_all,
          bool keep_ws, Table before = {})
        : table(std::move(before)), keep(keep_ws)
    {
        registerFile(directory + name);
        readFile({directory, name, report_all, cutIntoLines(text), 0});
    }

private:
    static constexpr std::size_t MAX_DEPTH = 60;
    static constexpr std::size_t MAX_FILES = 300;

    struct File
    {
        std::string directory;
        std::string name;
        bool report;
        std::vector<std::string> lines;
        /** The number of lines read, which is the number of the last one. */
        std::size_t next;
    };

    /** A decoded byte, and whether it may be trimmed as trailing white space. */
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

    static std::vector<std::string> cutIntoLines(const std::string& text)
    {
        std::vector<std::string> lines(1);
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
        return lines;
    }

    void readFile(File file)
    {
        // Recursion: the including file continues afterwards.
        std::swap(file, current);
        ++depth;
        while (current.next < current.lines.size() && error.empty()) {
            readLogicalLine();
        }
        --depth;
        std::swap(file, current);
    }

    /** Returns false if the file was already registered, under this path or another. */
    bool registerFile(const std::string& path)
    {
        if (!seen.insert(path).second) {
            return false;
        }
        if (path.find('\0') != std::string::npos) {
            return true;
        }
        std::error_code error_code;
        const std::string resolved = std::filesystem::canonical(path, error_code);
        return error_code || resolved == path || seen.insert(resolved).second;
    }

    void include(const std::string& path)
    {
        if (!registerFile(path)) {
            return;
        }
        std::ifstream file;
        std::error_code error_code;
        if (path.find('\0') == std::string::npos && !std::filesystem::is_directory(path, error_code)) {
            file.open(path, std::ios_base::binary);
        }
        if (!file.is_open()) {
            fail("failed to open include file: \"" + path + "\"");
            return;
        }
        if (depth == MAX_DEPTH || seen.size() == MAX_FILES) {
            gaveUp = true;
            fail("too many");
            return;
        }
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const std::size_t start = path.rfind('/') + 1;
        readFile({path.substr(0, start), path.substr(start), current.report, cutIntoLines(text), 0});
    }

    void fail(const std::string& text)
    {
        error = "ERROR: " + position() + ": " + text;
    }

    std::string position() const
    {
        return current.name + ":" + std::to_string(current.next);
    }

    void readLogicalLine()
    {
        std::vector<Byte> logical;
        bool continued = false;
        do {
            const bool continuation = continued;
            continued = false;
            if (current.next == current.lines.size()) {
                break;
            }
            std::string line = current.lines[current.next++];
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
            static const std::map<char, int> letters = {{'a', 7},  {'b', 8}, {'f', 12}, {'n', 10},
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
                    fail("Unicode escape sequence '\\u" + digits
                         + "' exceeds capacity of single byte character.");
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
        if (table.count(key) != 0 && current.report) {
            warnings += "WARNING: " + position() + ": Overriding property \"" + key + "\"\n";
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
                current.report = argument != "error";
            }
        } else if (command == "include") {
            if (argument.size() < 2 || argument[0] != '"' || argument[argument.size() - 1] != '"') {
                fail("invalid arg for %pragma include: \"" + argument + "\"");
            } else {
                include(current.directory + argument.substr(1, argument.size() - 2));
            }
        } else {
            fail("unknown %pragma command: \"" + command + "\"");
        }
    }

    const bool keep;
    File current = {};
    std::size_t depth = 0;
    /** The files that were read or opened, by their paths as given and as resolved. */
    std::set<std::string> seen;
};

}

#endif
