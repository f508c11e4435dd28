#ifndef BENCHMARKS_XML_DOCUMENTS_HPP
#define BENCHMARKS_XML_DOCUMENTS_HPP

#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

/** The documents to be parsed, the same in every run. */
namespace documents {

enum Kind { ATTRIBUTES, TEXT, MIXED };

inline const char* nameOf(int kind)
{
    static const char* const names[] = {"attributes", "text", "mixed"};
    return names[kind];
}

namespace detail {

/** An inventory: the data is in attributes, and many elements are empty. */
inline std::string attributeItem(std::mt19937& random)
{
    const std::string number = std::to_string(random() % 100000);
    return "  <disk id=\"d" + number + "\" model=\"ST" + number + "NM000" + number
           + "\" state=\"online\" firmware=\"SN0" + std::to_string(random() % 10) + "\" capacity='" + number
           + "000' unit=\"MB\" location=\"Rack 4 &amp; shelf " + std::to_string(random() % 40) + "\"/>\n";
}

/** Prose, with a few references. */
inline std::string textItem(std::mt19937& random)
{
    static const char* const words[] = {
        "the", "controller", "of", "this", "shelf", "reports", "a",   "battery", "that",  "will",
        "be",  "empty",      "in", "days", "and",   "asks",    "for", "its",     "early", "replacement"};
    std::string text = "<p>";
    for (auto count = 60 + random() % 120; count > 0; --count) {
        text += words[random() % 20];
        text += random() % 60 == 0 ? " &lt; " : " ";
    }
    return text + "</p>\n";
}

/** A response of a management server: short values in elements, with white space between them. */
inline std::string mixedItem(std::mt19937& random)
{
    const std::string number = std::to_string(random() % 100000);
    return "  <instance class=\"DiskDrive\">\n    <property name=\"DeviceID\"><value>" + number
           + "</value></property>\n    <property name=\"Caption\"><value>Disk drive in slot " + number
           + "</value></property>\n    <!-- not settable -->\n    <property name=\"Enabled\"><value>true"
             "</value></property>\n    <note><![CDATA[<raw> & unread]]></note>\n  </instance>\n";
}

inline std::string make(int kind, std::size_t size)
{
    std::mt19937 random(static_cast<unsigned>(kind) + 9100);
    std::string text = "<?xml version=\"1.0\"?>\n<root>\n";
    while (text.size() + 8 < size) {
        text += kind == ATTRIBUTES ? attributeItem(random)
                : kind == TEXT     ? textItem(random)
                                   : mixedItem(random);
    }
    return text + "</root>\n";
}

}

/** Returns a document of about `size` bytes. */
inline const std::string& one(int kind, std::size_t size)
{
    static std::map<std::pair<int, std::size_t>, std::string> cache;
    std::string& document = cache[{kind, size}];
    if (document.empty()) {
        document = detail::make(kind, size);
    }
    return document;
}

/** Returns documents of a few hundred bytes each. */
inline const std::vector<std::string>& messages()
{
    static const std::vector<std::string> cache = [] {
        std::mt19937 random(9104);
        std::vector<std::string> all;
        for (int i = 0; i < 1000; ++i) {
            const std::string number = std::to_string(random() % 100000);
            all.push_back(
                "<?xml version=\"1.0\"?>\n<request id=\"" + number
                + "\" operation=\"getInstance\">\n  <object>root/system:Disk." + number
                + "</object>\n  <option name=\"timeout\">30</option>\n  <option name=\"user\">op &amp; "
                  "admin</option>\n  <flags deep=\"true\" origin='false'/>\n</request>\n");
        }
        return all;
    }();
    return cache;
}

}

#endif
