// Fails the n-th allocation of a parse, for each n, until the parse succeeds.

#include "layer/Fault.hpp"

#include <dalnim/xml/nim_opbparse.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using faults::Call;
using faults::Fault;

int ignore(PDS_PARSE_H, pds_parse_cb_type_e, void*, void*, char*, char*, char*, std::size_t, char**)
{
    return 0;
}

[[maybe_unused]] int pushAtEachStart(PDS_PARSE_H handle, pds_parse_cb_type_e type, void*, void*, char*, char*,
                                     char*, std::size_t, char**)
{
    if (type == PDS_PARSE_CB_TAG_START) {
        nim_pdsParsePushCommonCB(pushAtEachStart, nullptr, 0, handle);
    }
    return 0;
}

/** Returns the result of parsing the text, in two pieces, while the n-th allocation fails. */
int parseWithFailure(Call call, unsigned int n, PDS_PARSE_COMMON_FN callback, const std::string& text,
                     std::string& error)
{
    std::string first = text.substr(0, text.size() / 2);
    std::string second = text.substr(text.size() / 2);
    PDS_PARSE_H handle = nullptr;
    Fault fault(call, ENOMEM, n, 1);
    int code = nim_pdsParseInit(0, nullptr, nullptr, nullptr, nullptr, callback, nullptr, &handle);
    if (code == PDS_PARSE_OK) {
        code = nim_pdsParseBuffer(first.data(), 0, handle);
    }
    if (code == PDS_PARSE_OK) {
        code = nim_pdsParseBuffer(second.data(), PDS_PARSE_F_LAST, handle);
    }
    fault.disarm();
    if (handle == nullptr) {
        return code;
    }
    error = nim_pdsParseGetErrorInfo(handle);
    if (code != PDS_PARSE_OK) {
        EXPECT_EQ(PDS_PARSE_E_PREVIOUS, nim_pdsParseBuffer(first.data(), 0, handle));
    }
    // The handle remains usable.
    EXPECT_EQ(PDS_PARSE_OK, nim_pdsParseReset(0, nullptr, handle));
    char small[] = "<a b='1'>x</a>";
    EXPECT_EQ(PDS_PARSE_OK, nim_pdsParseBuffer(small, PDS_PARSE_F_LAST, handle));
    EXPECT_EQ(PDS_PARSE_OK, nim_pdsParseDestroy(&handle));
    return code;
}

/** Returns how many allocations of a kind failed until the parse returned `expected`. */
unsigned int failuresUntil(Call call, int expected, PDS_PARSE_COMMON_FN callback, const std::string& text,
                           std::string& error)
{
    for (unsigned int n = 1; n < 1000; ++n) {
        error.clear();
        const int code = parseWithFailure(call, n, callback, text, error);
        if (code == expected) {
            return n - 1;
        }
        EXPECT_EQ(700012900, code) << n;
        EXPECT_EQ("", error) << n;
    }
    ADD_FAILURE() << "the parse never returned the expected result";
    return 0;
}

/** Returns a document with deep nesting, many attributes, long names, and text that exceeds the first buffer.
 */
std::string demandingText()
{
    std::string text;
    for (int i = 0; i < 50; ++i) {
        text += "<element" + std::to_string(i) + ">";
    }
    text += "<a";
    for (int i = 0; i < 100; ++i) {
        text += " name" + std::to_string(i) + "='&lt;'";
    }
    text += ">" + std::string(10000, 'x') + "</a>";
    for (int i = 50; i-- > 0;) {
        text += "</element" + std::to_string(i) + ">";
    }
    return text;
}

const std::string WRONG_END = "<a>" + std::string(100, ' ') + "</b>";

}

TEST(PushParserFault, OutOfMemoryIsReturnedAsACode)
{
    std::string error;
    EXPECT_GE(failuresUntil(Call::NEW, 0, ignore, demandingText(), error), 4u);
    EXPECT_EQ("", error);
}

TEST(PushParserFault, OutOfMemoryIsReturnedAsACodeIfTheErrorHasNoMessage)
{
    std::string error;
    EXPECT_GE(failuresUntil(Call::NEW, 700012003, ignore, WRONG_END, error), 2u);
    EXPECT_EQ("Mismatched End Tag -- near offset 105: b", error);
}

#if !defined DALNIM_SANITIZED

TEST(PushParserFault, FailedBlockIsReturnedAsACode)
{
    std::string error;
    EXPECT_GE(failuresUntil(Call::MALLOC, 0, ignore, demandingText(), error), 6u);
    EXPECT_EQ("", error);
}

TEST(PushParserFault, FailedBlockOfAPushIsReturnedAsACode)
{
    std::string error;
    const unsigned int without = failuresUntil(Call::MALLOC, 0, ignore, demandingText(), error);
    EXPECT_GE(failuresUntil(Call::MALLOC, 0, pushAtEachStart, demandingText(), error), without + 3);
}

TEST(PushParserFault, FailedBlockPrecedesAnError)
{
    std::string error;
    EXPECT_GE(failuresUntil(Call::MALLOC, 700012003, ignore, WRONG_END, error), 2u);
    EXPECT_EQ("Mismatched End Tag -- near offset 105: b", error);
}

#endif
