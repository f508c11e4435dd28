#ifndef TESTS_XML_RANDOMDOCUMENT_HPP
#define TESTS_XML_RANDOMDOCUMENT_HPP

#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

namespace parsermodel {

/** Generates random documents: well-formed ones, damaged ones, and sequences of the parser's delimiters. */
class RandomDocument
{
public:
    explicit RandomDocument(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t limit)
    {
        return random_() % limit;
    }

    bool oneIn(std::size_t chances)
    {
        return below(chances) == 0;
    }

    std::string make()
    {
        if (oneIn(3)) {
            return soup(1 + below(24));
        }
        std::string text = good();
        for (std::size_t faults = oneIn(4) ? 0 : 1 + below(3); faults > 0; --faults) {
            damage(text);
        }
        return text;
    }

    std::string good()
    {
        std::string text = around();
        if (oneIn(6)) {
            text += "<!DOCTYPE a [<!ELEMENT a (b)>]>";
        }
        text += around() + element(3) + around();
        return text;
    }

    std::string soup(std::size_t tokens)
    {
        std::string text = oneIn(6) ? "" : "<" + name() + oneOf({">", ">", " ", "/", "\n", ""});
        for (; tokens > 0; --tokens) {
            text += token();
        }
        return text;
    }

    /** Splits a document into pieces, some of them empty. */
    std::vector<std::string> cut(const std::string& text)
    {
        std::vector<std::string> pieces;
        std::size_t start = 0;
        for (std::size_t cuts = oneIn(2) ? 0 : below(5); cuts > 0; --cuts) {
            const std::size_t length = below(text.size() - start + 1);
            pieces.push_back(text.substr(start, length));
            start += length;
        }
        pieces.push_back(text.substr(start));
        return pieces;
    }

private:
    std::string oneOf(std::initializer_list<const char*> choices)
    {
        return *(choices.begin() + below(choices.size()));
    }

    std::string token()
    {
        return oneOf(
            {"<",    "<",    "</",     "</",        "/>",          "/>",        ">",         ">",
             "<!--", "-->",  "--",     "<![CDATA[", "]]>",         "<![cdata[", "<!",        "<!DOCTYPE ",
             "<?",   "?>",   "&lt;",   "&gt;",      "&quot;",      "&apos;",    "&amp;",     "&#65;",
             "&#;",  "&#0;", "&#321;", "&#32;",     "&#x41;",      "&",         "&lt",       "&LT;",
             "\"",   "'",    "=",      "=\"1\"",    "='2'",        " NULL=",    "NULL=\"\"", " ",
             "\t",   "\n",   "\r",     "\v",        "\f",          "a",         "b",         "ab",
             "_",    ":",    "!",      "?",         "-",           ".",         "7",         "/",
             "[",    "]",    ";",      "#",         "\xc3\xa4",    "\xff",      "\x80",      "<a>",
             "</a>", "<b/>", "<ab>",   "</b>",      "<a b=\"1\">", "\x01",      "x",         "text"});
    }

    std::string name()
    {
        if (oneIn(40)) {
            return oneOf({"!", "?q", "!DOCTYPE", "a?"});
        }
        return oneOf({"a", "b", "ab", "a:b", "_x", "n-1.0", "item", "NULL", "bb", "aLongerNameOfAnElement"});
    }

    std::string spaces()
    {
        return oneIn(2) ? "" : oneOf({" ", "\n", "\t", " \r\n ", "\f\v", "  "});
    }

    /** Returns markup that is allowed outside the root element. */
    std::string around()
    {
        std::string text;
        for (std::size_t count = below(3); count > 0; --count) {
            text += oneOf({" ", "\n", "<?xml version=\"1.0\"?>", "<?>", "<!-- c -->", "<!-->-->", "<!---->"});
        }
        return text;
    }

    std::string characters()
    {
        std::string text;
        for (std::size_t count = 1 + below(4); count > 0; --count) {
            text += oneOf({"text",
                           "x",
                           " ",
                           "\n",
                           "&lt;",
                           "&gt;",
                           "&quot;",
                           "&apos;",
                           "&amp;",
                           "&#65;",
                           "&#;",
                           "&#0;",
                           "&#32;",
                           "&#600;",
                           "\xc3\xa4",
                           "\xff",
                           "]]>",
                           "--",
                           "'",
                           "\"",
                           "=",
                           "/",
                           ">",
                           "a run of text that is longer than any vector register there is, and then some"});
        }
        return text;
    }

    std::string attributes()
    {
        std::string text;
        for (std::size_t count = oneIn(20) ? 9 + below(30) : below(4); count > 0; --count) {
            const std::string name = oneIn(10) ? this->name() : "k" + std::to_string(count);
            const std::string quote = oneOf({"\"", "'"});
            std::string value = oneIn(3) ? "" : characters();
            for (std::size_t at; (at = value.find(quote)) != std::string::npos;) {
                value.erase(at, 1);
            }
            text += (oneIn(8) ? "" : " ") + spaces() + name + "=" + quote + value + quote;
        }
        return text;
    }

    std::string element(int depth)
    {
        const std::string name = this->name();
        std::string text = "<" + name + attributes() + spaces();
        if (oneIn(4)) {
            return text + "/>";
        }
        text += ">";
        for (std::size_t count = below(4); count > 0; --count) {
            text += depth > 0 && oneIn(2) ? element(depth - 1) : content();
        }
        return text + "</" + name + spaces() + ">";
    }

    std::string content()
    {
        if (oneIn(2)) {
            return characters();
        }
        return oneOf({"<![CDATA[<&c>]]>", "<![cdata[]]>", "<!1234567x]]>", "<!-- c -->", "<!---->", "<?pi?>",
                      "<?>", "<!DOCTYPE x <y> >", "\n  ", "<![CDATA[]]]>", "<!-- -- -->"});
    }

    void damage(std::string& text)
    {
        const std::size_t at = below(text.size() + 1);
        const std::size_t length = 1 + below(oneIn(4) ? 20 : 3);
        switch (below(6)) {
        case 0:
            text.erase(at);
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, text.substr(below(text.size() + 1), length));
            break;
        case 3:
            text.replace(at, 1, 1, static_cast<char>(1 + below(255)));
            break;
        default:
            text.insert(at, token());
        }
    }

    std::mt19937 random_;
};

}

#endif
