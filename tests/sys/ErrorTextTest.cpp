// Unusual error messages of the system interface, which this program replaces.

#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/errors.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::sys_err_string;
using com::kor::dal::nim::sys::system_error;

const char* messageText = nullptr;

/** Sets the message of every error number until the end of the scope. */
class ErrorMessage
{
public:
    explicit ErrorMessage(const std::string& text) : text_(text)
    {
        messageText = text_.c_str();
    }
    ErrorMessage(const ErrorMessage&) = delete;
    ErrorMessage& operator=(const ErrorMessage&) = delete;
    ~ErrorMessage()
    {
        messageText = nullptr;
    }

private:
    std::string text_;
};

std::string letters(std::size_t count)
{
    return std::string(count, 'x');
}

}

const char* qv_si_strerror(qv_err_t) noexcept
{
    return messageText;
}

namespace {

TEST(ErrorText, MessagesComeFromTheReplacedInterface)
{
    const ErrorMessage message("message");
    EXPECT_EQ("message", sys_err_string(2));
    EXPECT_STREQ("message", system_error(2).what());
}

TEST(ErrorText, NumberWithoutAMessageIsNamed)
{
    EXPECT_EQ("Unknown error 2", sys_err_string(2));
    EXPECT_EQ("Unknown error -3", sys_err_string(-3));
    EXPECT_STREQ("Unknown error 2", system_error(2).what());
    errno = 2;
    EXPECT_EQ("Unknown error 2", sys_err_string());
    EXPECT_STREQ("Unknown error 2", system_error().what());
}

TEST(ErrorText, MessageOf1023BytesIsNotTruncated)
{
    for (const std::size_t length : {1U, 1022U, 1023U}) {
        const ErrorMessage message(letters(length));
        EXPECT_EQ(letters(length), sys_err_string(2));
    }
}

TEST(ErrorText, LongMessageIsTruncatedTo1023Bytes)
{
    for (const std::size_t length : {1024U, 1025U, 2000U, 100000U}) {
        const ErrorMessage message(letters(length));
        EXPECT_EQ(letters(1023), sys_err_string(2));
        EXPECT_EQ(letters(1023), sys_err_string(2U));
        EXPECT_EQ(letters(1023), system_error(2).what());
    }
}

TEST(ErrorText, MayBeTruncatedWithinACharacter)
{
    const ErrorMessage message(letters(1022) + "\xc3\xa4" + "y");
    EXPECT_EQ(letters(1022) + "\xc3", sys_err_string(2));
}

TEST(ErrorText, TrailingWhiteSpaceIsRemoved)
{
    EXPECT_EQ("text", (ErrorMessage("text\n"), sys_err_string(2)));
    EXPECT_EQ("text", (ErrorMessage("text \t\r\n\v\f "), sys_err_string(2)));
    EXPECT_EQ(" \n text", (ErrorMessage(" \n text "), sys_err_string(2)));
    EXPECT_EQ("two words", (ErrorMessage("two words"), sys_err_string(2)));
}

TEST(ErrorText, MessageOfOnlyWhiteSpaceIsEmpty)
{
    EXPECT_EQ("", (ErrorMessage(""), sys_err_string(2)));
    EXPECT_EQ("", (ErrorMessage(" "), sys_err_string(2)));
    EXPECT_EQ("", (ErrorMessage(" \n\t "), sys_err_string(2)));
    EXPECT_EQ("", (ErrorMessage(std::string(3000, ' ')), sys_err_string(2)));
}

TEST(ErrorText, WhiteSpaceBeforeTheTruncationIsRemoved)
{
    EXPECT_EQ(letters(1000),
              (ErrorMessage(letters(1000) + std::string(500, ' ') + letters(500)), sys_err_string(2)));
    EXPECT_EQ(letters(1022), (ErrorMessage(letters(1022) + " yyyy"), sys_err_string(2)));
    EXPECT_EQ(letters(1023), (ErrorMessage(letters(1023) + "    "), sys_err_string(2)));
    EXPECT_EQ(letters(1000), (ErrorMessage(letters(1000) + std::string(23, ' ')), sys_err_string(2)));
}

TEST(ErrorText, MessageOfErrnoIsUnchanged)
{
    errno = 7;
    const ErrorMessage message(letters(2000) + " \n");
    const system_error error;
    EXPECT_EQ(7, error.error());
    EXPECT_EQ(letters(2000) + " \n", error.what());
    errno = 7;
    EXPECT_EQ(letters(1023), sys_err_string());
}

}
