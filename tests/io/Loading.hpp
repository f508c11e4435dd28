#ifndef TESTS_IO_LOADING_HPP
#define TESTS_IO_LOADING_HPP

#include <dalnim/io/Properties.hpp>

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <stdexcept>

/** Loads texts as properties files. */
namespace iotest {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;

typedef std::map<String, String> Table;

inline Table tableOf(const Properties& properties)
{
    return Table(properties.begin(), properties.end());
}

inline Table loaded(const String& text, bool keep_trailing_ws = false)
{
    std::istringstream stream(text);
    const Properties properties(stream, keep_trailing_ws);
    return tableOf(properties);
}

/** Loads `text` as file "conf/x.conf" and returns the message of the exception. */
inline String failureOf(const String& text)
{
    std::istringstream stream(text);
    std::ostringstream warnings;
    std::ostringstream notes;
    try {
        Properties().load(stream, "conf/x.conf", warnings, notes, Properties::SEV_NOTE);
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    return "loaded";
}

inline String warningsOf(const String& text, Properties::Severity sev, Properties& properties)
{
    std::istringstream stream(text);
    std::ostringstream warnings;
    std::ostringstream notes;
    properties.load(stream, "/etc/conf/x.conf", warnings, notes, sev);
    EXPECT_EQ("", notes.str());
    return warnings.str();
}

inline String warningsOf(const String& text, Properties::Severity sev)
{
    Properties properties;
    return warningsOf(text, sev, properties);
}
}

#endif
