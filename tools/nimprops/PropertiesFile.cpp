#include "PropertiesFile.hpp"

#include <support/Errors.hpp>
#include <support/Includes.hpp>
#include <support/Input.hpp>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <streambuf>

namespace nimprops {

namespace {

const char OVERRIDING[] = "Overriding property \"";

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string fileName(const std::string& path)
{
    return path.substr(directoryOf(path).size());
}

/** Replaces a line (`number` counts from 1) by an empty line. Returns false if it does not exist. */
bool eraseLine(std::string& text, unsigned long number)
{
    std::size_t begin = 0;
    for (; number > 1; --number) {
        begin = text.find('\n', begin);
        if (begin == std::string::npos) {
            return false;
        }
        ++begin;
    }
    text.erase(begin, std::min(text.find('\n', begin), text.size()) - begin);
    return true;
}

/** A stream buffer that calls a handler with each line when it is complete. */
template <class LineHandler>
class LineSplitter : public std::streambuf
{
public:
    explicit LineSplitter(LineHandler lineHandler) : onLine(lineHandler) {}

protected:
    int_type overflow(int_type c) override
    {
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            const char byte = traits_type::to_char_type(c);
            xsputn(&byte, 1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* bytes, std::streamsize length) override
    {
        line.append(bytes, static_cast<std::size_t>(length));
        for (std::size_t end; (end = line.find('\n')) != std::string::npos; line.erase(0, end + 1)) {
            onLine(line.substr(0, end));
        }
        return length;
    }

private:
    LineHandler onLine;
    std::string line;
};

/**
 * Loads properties and calls `onLine` with each warning immediately. Returns the error that ended the load.
 */
template <class LineHandler>
std::string load(io::Properties& into, const std::string& path, const std::string& text, LineHandler onLine)
{
    std::istringstream is(text);
    LineSplitter<LineHandler> listener(onLine);
    std::ostringstream warnings;
    std::ostringstream notes;
    static_cast<std::ios&>(warnings).rdbuf(&listener);
    try {
        nimtools::translateLoadErrors(
            "", [&] { into.load(is, path, warnings, notes, io::Properties::SEV_WARNING); });
    } catch (const nimtools::Failure& exc) {
        return exc.what();
    }
    return "";
}

}

PropertiesFile::PropertiesFile(const std::string& filePath)
    : path(filePath), text(nimtools::readAll(filePath))
{
    findIncludes();
    loadMessages = readText(properties, text);
}

std::vector<Message> PropertiesFile::readText(io::Properties& into, const std::string& lines) const
{
    std::vector<Message> messages;
    const std::string error =
        load(into, path, lines, [&](const std::string& line) { messages.push_back(message(line)); });
    if (!error.empty()) {
        messages.push_back(message(error));
    }
    return messages;
}

/** Collects the paths of included files. They are needed only to show paths in messages. */
void PropertiesFile::findIncludes()
{
    paths.emplace(fileName(path), path);
    for (const std::string& included : nimtools::includedFiles(path, text)) {
        paths.emplace(fileName(included), included);
    }
}

/** Parses "WARNING: name:12: text" or "ERROR: name:12: text". */
Message PropertiesFile::message(const std::string& line) const
{
    const std::size_t nameBegin = line.find(": ") + 2;
    Message result = {line[0] == 'E' ? Message::ERROR : Message::WARNING, path, line.substr(nameBegin)};
    for (std::size_t colon = nameBegin; (colon = line.find(':', colon)) != std::string::npos; ++colon) {
        const std::size_t digits = colon + 1;
        const std::size_t end = std::min(line.find_first_not_of("0123456789", digits), line.size());
        if (end != digits && line.compare(end, 2, ": ") == 0) {
            result.location =
                locationOf(line.substr(nameBegin, colon - nameBegin), line.substr(digits, end - digits));
            result.text = line.substr(end + 2);
            break;
        }
    }
    return result;
}

std::string PropertiesFile::locationOf(const std::string& name, const std::string& line) const
{
    // If several files have this name, the path is unknown.
    const auto [first, last] = paths.equal_range(name);
    const bool isUnambiguous = first != last && std::next(first) == last;
    return (isUnambiguous ? first->second : name) + ":" + line;
}

void PropertiesFile::requireNoError() const
{
    if (!loadMessages.empty() && loadMessages.back().severity == Message::ERROR) {
        throw nimtools::Failure(loadMessages.back().location + ": " + loadMessages.back().text);
    }
}

std::vector<Message> PropertiesFile::allMessages() const
{
    constexpr std::size_t MAX_ERRORS = 100;
    std::vector<Message> errors;
    std::vector<Message> messages = loadMessages;
    std::string patched = text;
    const bool isUnambiguous = paths.count(fileName(path)) == 1;
    while (isUnambiguous && !messages.empty() && messages.back().severity == Message::ERROR) {
        const std::string& location = messages.back().location;
        const std::size_t colon = location.rfind(':');
        if (location.substr(0, colon) != path || errors.size() == MAX_ERRORS
            || !eraseLine(patched, std::stoul(location.substr(colon + 1)))) {
            break;
        }
        errors.push_back(messages.back());
        io::Properties unused;
        messages = readText(unused, patched);
    }
    messages.insert(messages.begin(), errors.begin(), errors.end());
    return messages;
}

/**
 * The library warns about assignments to existing keys. The file is therefore loaded again into a copy of its
 * own table, which has all keys, so that every assignment produces a warning; the last one for a key is its
 * location. Assignments after "%pragma severity error" produce no warning. They are detected by the value: if
 * the value at the time of the last warning differs from the final one, the location is unknown.
 */
std::map<std::string, std::string> PropertiesFile::locations() const
{
    struct Assignment
    {
        std::string location;
        std::string value;
    };
    std::map<std::string, Assignment> last;
    io::Properties again(properties);
    load(again, path, text, [&](const std::string& line) {
        const Message assignment = message(line);
        const std::size_t key = assignment.text.find(OVERRIDING) + sizeof OVERRIDING - 1;
        const std::string name = assignment.text.substr(key, assignment.text.size() - key - 1);
        last[name] = {assignment.location, again.getProperty(name)};
    });

    std::map<std::string, std::string> result;
    for (const auto& [key, assignment] : last) {
        if (assignment.value == again.getProperty(key)) {
            result.emplace(key, assignment.location);
        }
    }
    return result;
}

/** Uses Properties::store(), and escapes leading "#", "!" and "%" and trailing spaces, which it does not. */
std::vector<std::string> storedLines(const io::Properties& properties)
{
    std::ostringstream stored;
    properties.store(stored, "");
    std::istringstream is(stored.str());

    std::vector<std::string> lines;
    std::string line;
    std::getline(is, line); // the date
    while (std::getline(is, line)) {
        if (line[0] == '#' || line[0] == '!' || line[0] == '%') {
            line.insert(0, 1, '\\');
        }
        if (line.back() == ' ') {
            line.insert(line.size() - 1, 1, '\\');
        }
        lines.push_back(line);
    }
    return lines;
}

}
