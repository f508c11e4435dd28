#include <dalnim/xml/nim_opbparse.h>

#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

/*
 * Compares the parser with Expat on the XML documents that are installed on the system. If both accept a
 * document, the events must be equal. If only this parser rejects it, the document must contain a construct
 * that the subset excludes, at the offset of the error.
 */

namespace {

/**
 * The events of a document in a normal form: all text between two tags is one event, even if it contained
 * CDATA sections or comments, or was reported in parts.
 */
class EventList
{
public:
    void start(const std::string& tag, std::vector<std::pair<std::string, std::string>> attributes)
    {
        endText();
        std::string event = "<" + tag;
        for (auto& [name, value] : attributes) {
            // In attribute values, Expat replaces tabs by spaces; this parser does not.
            std::replace(value.begin(), value.end(), '\t', ' ');
            event += " " + name + "=\"" + value + "\"";
        }
        events.push_back(event);
    }
    void end(const std::string& tag)
    {
        endText();
        events.push_back("</" + tag);
    }
    void text(const std::string& data)
    {
        pending += data;
    }

    std::vector<std::string> events;

private:
    void endText()
    {
        if (!pending.empty()) {
            events.push_back(pending);
            pending.clear();
        }
    }

    std::string pending;
};

struct Result
{
    bool accepted = false;
    std::string error;
    std::vector<std::string> events;
};

Result parseHere(const std::string& document)
{
    struct Callbacks
    {
        static int start(void* context, char* tag, char*, std::size_t entries, char** attributes)
        {
            std::vector<std::pair<std::string, std::string>> list;
            for (std::size_t i = 0; i < entries; i += 2) {
                list.emplace_back(attributes[i], attributes[i + 1]);
            }
            static_cast<EventList*>(context)->start(tag, list);
            return 0;
        }
        static int end(void* context, char* tag, char*)
        {
            static_cast<EventList*>(context)->end(tag);
            return 0;
        }
        static int data(void* context, int, char* text, char*)
        {
            static_cast<EventList*>(context)->text(text);
            return 0;
        }
    };
    EventList list;
    PDS_PARSE_H handle = nullptr;
    nim_pdsParseInit(0, &list, Callbacks::start, Callbacks::end, Callbacks::data, nullptr, nullptr, &handle);
    Result result;
    result.accepted =
        nim_pdsParseBuffer(const_cast<char*>(document.c_str()), PDS_PARSE_F_LAST, handle) == PDS_PARSE_OK;
    result.error = nim_pdsParseGetErrorInfo(handle);
    result.events = list.events;
    nim_pdsParseDestroy(&handle);
    return result;
}

Result parseWithExpat(const std::string& document)
{
    struct Callbacks
    {
        EventList list;
        XML_Parser parser;

        static void start(void* context, const XML_Char* tag, const XML_Char** attributes)
        {
            auto& self = *static_cast<Callbacks*>(context);
            std::vector<std::pair<std::string, std::string>> attributeList;
            // Without the attributes that a DOCTYPE adds by default.
            const int entries = XML_GetSpecifiedAttributeCount(self.parser);
            for (int i = 0; i < entries; i += 2) {
                attributeList.emplace_back(attributes[i], attributes[i + 1]);
            }
            self.list.start(tag, attributeList);
        }
        static void end(void* context, const XML_Char* tag)
        {
            static_cast<Callbacks*>(context)->list.end(tag);
        }
        static void data(void* context, const XML_Char* text, int length)
        {
            static_cast<Callbacks*>(context)->list.text(std::string(text, static_cast<std::size_t>(length)));
        }
    };
    const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                              XML_ParserFree);
    Callbacks callbacks{EventList(), parser.get()};
    XML_SetUserData(parser.get(), &callbacks);
    XML_SetElementHandler(parser.get(), Callbacks::start, Callbacks::end);
    XML_SetCharacterDataHandler(parser.get(), Callbacks::data);
    Result result;
    result.accepted =
        XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    result.events = callbacks.list.events;
    return result;
}

/** Normalises line ends as XML 1.0 requires (section 2.11). */
std::string withPlainLineEnds(const std::string& text)
{
    std::string plain = std::regex_replace(text, std::regex("\r\n"), "\n");
    std::replace(plain.begin(), plain.end(), '\r', '\n');
    return plain;
}

/** Removes decimal references above 127, which become one byte in this parser and UTF-8 in Expat. */
std::string withoutWideSymbols(const std::string& text)
{
    return std::regex_replace(text, std::regex("&#(12[89]|1[3-9][0-9]|[2-9][0-9]{2}|[0-9]{4,});"), "($1)");
}

/**
 * Returns the construct that the subset excludes and that the document contains at the offset of the error,
 * or an empty string if there is none.
 */
std::string reasonFor(const std::string& document, const std::string& error)
{
    std::smatch match;
    if (!std::regex_search(error, match, std::regex("^(.*) -- near offset ([0-9]+): "))) {
        return "";
    }
    const std::string message = match[1];
    const std::string there = document.substr(std::stoul(match[2]), 4096);
    const auto begins = [&](const char* expression) {
        return std::regex_search(there, std::regex(expression, std::regex::extended),
                                 std::regex_constants::match_continuous);
    };
    if (message == "Attribute name doesn't terminate with an '='"
        && begins("[A-Za-z0-9_:.-]+[[:space:]]+=")) {
        return "white space before the '='";
    }
    if (message == "Attribute value doesn't start with a quote"
        && begins("[A-Za-z0-9_:.-]+=[[:space:]]+[\"']")) {
        return "white space after the '='";
    }
    if (message == "Unrecognized special symbol" && begins("[^<]*&#x[0-9A-Fa-f]+;")) {
        return "hexadecimal character reference";
    }
    if (message == "Unrecognized special symbol" && begins("[^<]*&[A-Za-z]")) {
        return "entity other than the predefined five";
    }
    if (message == "Invalid data contained outside a top-level Element" && begins("\xEF\xBB\xBF")) {
        return "byte order mark";
    }
    if (message == "Element name [Start Tag] contains an invalid character" && begins("!DOCTYPE\n")) {
        return "DOCTYPE followed by a line feed";
    }
    if ((message == "Invalid data contained outside a top-level Element"
         || message == "DOCTYPE tag is not properly terminated - reached End Of Document")
        && document.find("<!DOCTYPE ") != std::string::npos) {
        return "bracket in a comment or string of the DOCTYPE";
    }
    return "";
}

std::vector<std::filesystem::path> documents()
{
    std::vector<std::filesystem::path> found;
    for (const char* directory : {"/usr/share/mime/packages", "/usr/share/xml"}) {
        if (!std::filesystem::is_directory(directory)) {
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
            const std::string ending = entry.path().extension();
            if (entry.is_regular_file() && !entry.is_symlink()
                && (ending == ".xml" || ending == ".xsl" || ending == ".rng" || ending == ".xsd")) {
                found.push_back(entry.path());
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string read(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}

TEST(ExpatComparison, SystemDocumentsProduceTheSameEvents)
{
    std::size_t accepted = 0;
    std::size_t bytes = 0;
    std::map<std::string, std::vector<std::string>> rejected;
    for (const std::filesystem::path& path : documents()) {
        const std::string document = withoutWideSymbols(withPlainLineEnds(read(path)));
        const Result peer = parseWithExpat(document);
        if (!peer.accepted) {
            continue;
        }
        const Result here = parseHere(document);
        if (!here.accepted) {
            const std::string reason = reasonFor(document, here.error);
            EXPECT_NE(reason, "") << path << ": " << here.error;
            rejected[reason].push_back(path);
            continue;
        }
        ++accepted;
        bytes += document.size();
        EXPECT_TRUE(here.events == peer.events) << path;
    }
    std::cout << accepted << " documents of " << bytes << " bytes have the same events\n";
    for (const auto& [reason, paths] : rejected) {
        std::cout << paths.size() << " rejected: " << reason << ", for example " << paths.front() << '\n';
    }
    // Fails if the packages that contain the documents are not installed.
    EXPECT_GE(accepted, 10U);
    EXPECT_GE(bytes, 2000000U);
}
