#ifndef TESTS_XML_OUTCOME_HPP
#define TESTS_XML_OUTCOME_HPP

#include "Recorder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace test {

using Lines = std::vector<std::string>;

/** The result of parsing a document. */
struct Outcome
{
    int code;
    Lines events;
    std::string error;
};

inline Outcome parse(const std::string& text, int flags = 0, bool common = false)
{
    Recorder recorder;
    PushParser parser(recorder, common);
    const int code = parser.parse(text, flags);
    return {code, recorder.events, parser.error()};
}

/** Returns the events of a document that must be accepted. */
inline Lines eventsOf(const std::string& text, int flags = 0, bool common = false)
{
    const Outcome outcome = parse(text, flags, common);
    EXPECT_EQ(outcome.code, 0) << text;
    EXPECT_EQ(outcome.error, "") << text;
    return outcome.events;
}

/** Returns the error message of a document that must be rejected. */
inline std::string errorOf(const std::string& text, int flags = 0)
{
    const Outcome outcome = parse(text, flags);
    EXPECT_EQ(outcome.code, 700012003) << text;
    return outcome.error;
}

}

#endif
