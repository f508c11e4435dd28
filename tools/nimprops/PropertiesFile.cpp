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

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string lastPart(const std::string& path)
{
    return path.substr(folderOf(path).size());
}

/** Takes the N-th line, from 1, out of a text, and leaves an empty one. */
bool blankLine(std::string& text, unsigned long number)
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

/** A stream's buffer that hands each line on as it is written. */
template <class Take>
class LineListener : public std::streambuf
{
public:
    explicit LineListener(Take taker) : take(taker) {}

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
            take(line.substr(0, end));
        }
        return length;
    }

private:
    Take take;
    std::string line;
};

/** Loads a text with warnings, of which `take` hears one by one; gives the error that ended it. */
template <class Take>
std::string load(io::Properties& into, const std::string& path, const std::string& text, Take take)
{
    std::istringstream is(text);
    LineListener<Take> listener(take);
    std::ostringstream warnings;
    std::ostringstream notes;
    static_cast<std::ios&>(warnings).rdbuf(&listener);
    try {
        into.load(is, path, warnings, notes, io::Properties::SEV_WARNING);
    } catch (const std::invalid_argument& exc) {
        return exc.what();
    } catch (const std::runtime_error& exc) {
        return exc.what();
    }
    return "";
}

}

PropertiesFile::PropertiesFile(const std::string& filePath)
    : path(filePath), text(nimtools::readAll(filePath))
{
    findIncludes();
    found = readText(properties, text);
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

/** Messages name a file by the last part of its path alone. The includes decide no more than which path is
 * shown. */
void PropertiesFile::findIncludes()
{
    paths.emplace(lastPart(path), path);
    for (const std::string& included : nimtools::includedFiles(path, text)) {
        paths.emplace(lastPart(included), included);
    }
}

/** Takes "WARNING: name:12: text" or "ERROR: name:12: text" apart. */
Message PropertiesFile::message(const std::string& line) const
{
    const std::size_t nameBegin = line.find(": ") + 2;
    Message result = {line[0] == 'E' ? Message::ERROR : Message::WARNING, path, line.substr(nameBegin)};
    for (std::size_t colon = nameBegin; (colon = line.find(':', colon)) != std::string::npos; ++colon) {
        const std::size_t digits = colon + 1;
        const std::size_t end = std::min(line.find_first_not_of("0123456789", digits), line.size());
        if (end != digits && line.compare(end, 2, ": ") == 0) {
            result.place =
                placeOf(line.substr(nameBegin, colon - nameBegin), line.substr(digits, end - digits));
            result.text = line.substr(end + 2);
            break;
        }
    }
    return result;
}

std::string PropertiesFile::placeOf(const std::string& name, const std::string& line) const
{
    // With two files of one name the name is all that is known.
    const auto [first, last] = paths.equal_range(name);
    const bool isClear = first != last && std::next(first) == last;
    return (isClear ? first->second : name) + ":" + line;
}

void PropertiesFile::requireNoError() const
{
    if (!found.empty() && found.back().severity == Message::ERROR) {
        throw nimtools::Failure(found.back().place + ": " + found.back().text);
    }
}

std::vector<Message> PropertiesFile::allMessages() const
{
    constexpr std::size_t MOST_ERRORS = 100;
    std::vector<Message> errors;
    std::vector<Message> messages = found;
    std::string mended = text;
    const bool isClear = paths.count(lastPart(path)) == 1;
    while (isClear && !messages.empty() && messages.back().severity == Message::ERROR) {
        const std::string& place = messages.back().place;
        const std::size_t colon = place.rfind(':');
        if (place.substr(0, colon) != path || errors.size() == MOST_ERRORS
            || !blankLine(mended, std::stoul(place.substr(colon + 1)))) {
            break;
        }
        errors.push_back(messages.back());
        io::Properties unused;
        messages = readText(unused, mended);
    }
    messages.insert(messages.begin(), errors.begin(), errors.end());
    return messages;
}

/**
 * The library tells of an assignment to a key that is there already. So the file is read a second time
 * into its own table, where all keys are: that tells of each assignment, the last one of a key last. At
 * that moment its value is in the table; when the table has another one in the end, there was an
 * assignment behind it that a "%pragma severity error" has silenced.
 */
std::map<std::string, std::string> PropertiesFile::places() const
{
    struct Assignment
    {
        std::string place;
        std::string value;
    };
    std::map<std::string, Assignment> last;
    io::Properties again(properties);
    load(again, path, text, [&](const std::string& line) {
        const Message assignment = message(line);
        const std::size_t key = assignment.text.find(OVERRIDING) + sizeof OVERRIDING - 1;
        const std::string name = assignment.text.substr(key, assignment.text.size() - key - 1);
        last[name] = {assignment.place, again.getProperty(name)};
    });

    std::map<std::string, std::string> result;
    for (const auto& [key, assignment] : last) {
        if (assignment.value == again.getProperty(key)) {
            result.emplace(key, assignment.place);
        }
    }
    return result;
}

/** The library's own form, mended where it would be read back as something else. */
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
