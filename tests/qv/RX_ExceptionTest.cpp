#include <qv/rtlapi/RX_Exception.hpp>

#include <gtest/gtest.h>

#include <future>
#include <ios>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <typeinfo>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

namespace {

static_assert(std::is_base_of_v<RX_Exception_, RX_Exception> && std::is_base_of_v<RX_Exception, RX_ExFatal>);
static_assert(std::is_base_of_v<RX_ExFatal, RX_ExError> && std::is_base_of_v<RX_ExError, RX_ExWarning>);
static_assert(!std::is_base_of_v<std::exception, RX_ExWarning>);

std::string textOf(const RX_Exception_& exception, unsigned int width = 78)
{
    return exception.asString(width).data();
}

const std::type_info& typeOf(const RX_Exception& exception)
{
    return typeid(exception);
}

template <class Caught, class Thrown>
bool isCaught(const Thrown& thrown)
{
    try {
        throw thrown;
    } catch (const Caught&) {
        return true;
    } catch (...) {
        return false;
    }
}

TEST(RXException, HandlersCatchDerivedExceptions)
{
    const RX_ExWarning warning(16);
    EXPECT_TRUE(isCaught<RX_ExWarning>(warning));
    EXPECT_TRUE(isCaught<RX_ExError>(warning));
    EXPECT_TRUE(isCaught<RX_ExFatal>(warning));
    EXPECT_TRUE(isCaught<RX_Exception>(warning));
    EXPECT_TRUE(isCaught<RX_Exception_>(warning));
    EXPECT_FALSE(isCaught<RX_ExWarning>(RX_ExError(16)));
    EXPECT_FALSE(isCaught<RX_ExError>(RX_ExFatal(16)));
    EXPECT_FALSE(isCaught<RX_ExFatal>(RX_Exception(16)));
}

template <class T>
class RXExceptionClass : public testing::Test
{
};

typedef testing::Types<RX_Exception, RX_ExFatal, RX_ExError, RX_ExWarning> Classes;
TYPED_TEST_SUITE(RXExceptionClass, Classes, );

TYPED_TEST(RXExceptionClass, CarriesCodeAndArguments)
{
    const TypeParam bare(22);
    EXPECT_EQ(bare.getCode(), 22);
    EXPECT_EQ(bare.getLine(), 0U);
    EXPECT_EQ(bare.getFile(), "");
    EXPECT_EQ(bare.getArgument(0).getRep(), RX_String::none.getRep());

    const TypeParam full(51459, "a", "b", "c", "d", "e", "f");
    EXPECT_EQ(full.getCode(), 51459);
    EXPECT_EQ(full.getArgument(0), "a");
    EXPECT_EQ(full.getArgument(5), "f");
    EXPECT_EQ(full.getArgument(6), "");
}

TYPED_TEST(RXExceptionClass, CarriesASourcePosition)
{
    const TypeParam exception(12, "a/file", 2, "one");
    EXPECT_EQ(exception.getLine(), 12U);
    EXPECT_EQ(exception.getFile(), "a/file");
    EXPECT_EQ(exception.getCode(), 2);
    EXPECT_EQ(exception.getArgument(0), "one");
    EXPECT_EQ(exception.getArgument(1), "");
    // The message does not include the position.
    EXPECT_EQ(textOf(exception), "No such file or directory: one");
}

TYPED_TEST(RXExceptionClass, ThrowsACopyOfItsOwnType)
{
    TypeParam exception(16, "busy");
    exception.chain(2);
    const RX_Exception& base = exception;
    try {
        base.throwThis();
    } catch (const RX_Exception& caught) {
        EXPECT_EQ(typeOf(caught), typeid(TypeParam));
        EXPECT_NE(&caught, &base);
        EXPECT_EQ(textOf(caught), "Device or resource busy: busy\nNo such file or directory");
    }
}

TYPED_TEST(RXExceptionClass, ClonesItself)
{
    TypeParam exception(16, "busy");
    exception.chain(2);
    const RX_Exception& base = exception;
    const std::unique_ptr<RX_Exception> copy(base.clone());
    EXPECT_EQ(typeOf(*copy), typeid(TypeParam));
    EXPECT_EQ(textOf(*copy), textOf(base));
}

template <class T>
class RXExceptionConversion : public testing::Test
{
};

typedef testing::Types<RX_ExFatal, RX_ExError, RX_ExWarning> Convertible;
TYPED_TEST_SUITE(RXExceptionConversion, Convertible, );

TYPED_TEST(RXExceptionConversion, IsADeepCopy)
{
    RX_Exception source(7, "file", 16, "one", "two");
    source.chain(2, "three");
    const TypeParam copy(source);
    source.chain(13);
    source = RX_Exception(1);

    EXPECT_EQ(copy.getCode(), 16);
    EXPECT_EQ(copy.getLine(), 7U);
    EXPECT_EQ(copy.getFile(), "file");
    EXPECT_EQ(textOf(copy), "Device or resource busy: one, two\nNo such file or directory: three");
}

TEST(RXException, AssignmentIsADeepCopy)
{
    RX_ExWarning target(16, "old");
    target.chain(2);
    RX_ExWarning source(3, "file", 22, "new");
    source.chain(13, "denied");
    target = source;
    EXPECT_EQ(target.getLine(), 3U);
    EXPECT_EQ(textOf(target), "Invalid argument: new\nPermission denied: denied");
    const RX_ExWarning& self = target;
    target = self;
    EXPECT_EQ(textOf(target), "Invalid argument: new\nPermission denied: denied");
    EXPECT_EQ(textOf(source), "Invalid argument: new\nPermission denied: denied");
}

TEST(RXException, ChainAppendsMessagesInOrder)
{
    RX_ExError exception(2, "first");
    EXPECT_EQ(&exception.chain(13, "second", "too"), &exception);
    exception.chain(22).chain(51459, "a == b");
    EXPECT_EQ(exception.getCode(), 2);
    EXPECT_EQ(textOf(exception), "No such file or directory: first\n"
                                 "Permission denied: second, too\n"
                                 "Invalid argument\n"
                                 "Condition does not hold: a == b");
}

TEST(RXExceptionText, IsTheMessageOfTheCode)
{
    EXPECT_EQ(textOf(RX_ExFatal(2)), "No such file or directory");
    EXPECT_EQ(textOf(RX_ExFatal(16)), "Device or resource busy");
    EXPECT_EQ(textOf(RX_ExFatal(62)), "Timer expired");
    EXPECT_EQ(textOf(RX_ExFatal(51488)), "No such element");
    EXPECT_EQ(textOf(RX_ExFatal(51512)), "Iterator used past its end");
    EXPECT_EQ(textOf(RX_ExFatal(51532)), "Set was modified during an iteration");
    EXPECT_EQ(textOf(RX_ExFatal(99999)), "Unknown error 99999");
    EXPECT_EQ(textOf(RX_ExFatal(-7)), "Unknown error -7");
}

TEST(RXExceptionText, ArgumentsAreSubstitutedOrAppended)
{
    EXPECT_EQ(textOf(RX_ExFatal(51458, "7", "3")), "Index 7 is out of range, the size is 3");
    EXPECT_EQ(textOf(RX_ExFatal(51459, "size_nolock() == 0 && _threadCount == 0")),
              "Condition does not hold: size_nolock() == 0 && _threadCount == 0");
    EXPECT_EQ(textOf(RX_ExFatal(13, "/a/path")), "Permission denied: /a/path");
    EXPECT_EQ(textOf(RX_ExFatal(13, "a", RX_String::none, "c", "d", "e", "f")),
              "Permission denied: a, c, d, e, f");
}

TEST(RXExceptionText, IsWrappedAtSpaces)
{
    const RX_ExFatal exception(22, "aaaa bbbb cccc dddd");
    EXPECT_EQ(textOf(exception), "Invalid argument: aaaa bbbb cccc dddd");
    EXPECT_EQ(textOf(exception, 37), "Invalid argument: aaaa bbbb cccc dddd");
    EXPECT_EQ(textOf(exception, 36), "Invalid argument: aaaa bbbb cccc\ndddd");
    EXPECT_EQ(textOf(exception, 17), "Invalid argument:\naaaa bbbb cccc\ndddd");
    EXPECT_EQ(textOf(exception, 16), "Invalid\nargument: aaaa\nbbbb cccc dddd");
    EXPECT_EQ(textOf(exception, 0), "Invalid argument: aaaa bbbb cccc dddd");
}

TEST(RXExceptionText, LongWordsAreNotBroken)
{
    EXPECT_EQ(textOf(RX_ExFatal(22, "aaaaaaaaaaaaaaaaaaaaaaaa b"), 10),
              "Invalid\nargument:\naaaaaaaaaaaaaaaaaaaaaaaa\nb");
    EXPECT_EQ(textOf(RX_ExFatal(22), 1), "Invalid\nargument");
    EXPECT_EQ(textOf(RX_ExFatal(22, std::string(100, 'x').c_str()), 78),
              "Invalid argument:\n" + std::string(100, 'x'));
}

TEST(RXExceptionText, IsWrappedAtRunsOfSpacesAndAtTheEnd)
{
    EXPECT_EQ(textOf(RX_ExFatal(22, "a    b"), 18), "Invalid argument:\na    b");
    EXPECT_EQ(textOf(RX_ExFatal(22, "a    b"), 20), "Invalid argument: a\nb");
    EXPECT_EQ(textOf(RX_ExFatal(22, "\n      word"), 3), "Invalid\nargument: \n      word");
    EXPECT_EQ(textOf(RX_ExFatal(22, "a   "), 18), "Invalid argument:\na   ");
    EXPECT_EQ(textOf(RX_ExFatal(22, "a\nb"), 78), "Invalid argument: a\nb");
}

TEST(RXExceptionText, MessagesOfAChainAreWrappedSeparately)
{
    RX_ExFatal exception(2);
    exception.chain(13);
    EXPECT_EQ(textOf(exception, 12), "No such file\nor directory\nPermission\ndenied");
}

TEST(RXCheck, DoesNotThrowForSuccess)
{
    EXPECT_NO_THROW(RX_Check(0));
}

TEST(RXCheck, ThrowsExFatalWithTheStatus)
{
    try {
        RX_Check(16);
        FAIL();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(exception.getCode(), 16);
        EXPECT_EQ(typeid(exception), typeid(RX_ExFatal));
        EXPECT_EQ(textOf(exception), "Device or resource busy");
    }
    EXPECT_THROW(RX_CheckThrow_(-1), RX_Exception);
}

/** Returns the result of RX_analyzeCurrentException_() in a handler for `thrown`. */
template <class Thrown>
std::unique_ptr<RX_Exception> analyze(const Thrown& thrown)
{
    try {
        throw thrown;
    } catch (...) {
        return std::unique_ptr<RX_Exception>(RX_analyzeCurrentException_());
    }
}

TEST(RXAnalyze, KeepsTheDynamicTypeOfAnRXException)
{
    RX_ExWarning warning(9, "file", 16, "busy");
    warning.chain(2);
    const std::unique_ptr<RX_Exception> copy = analyze(warning);
    EXPECT_EQ(typeOf(*copy), typeid(RX_ExWarning));
    EXPECT_EQ(copy->getLine(), 9U);
    EXPECT_EQ(textOf(*copy), "Device or resource busy: busy\nNo such file or directory");
    EXPECT_THROW(copy->throwThis(), RX_ExWarning);
    EXPECT_EQ(typeOf(*analyze(RX_ExError(1))), typeid(RX_ExError));
    EXPECT_EQ(typeOf(*analyze(RX_ExFatal(1))), typeid(RX_ExFatal));
    EXPECT_EQ(typeOf(*analyze(RX_Exception(1))), typeid(RX_Exception));
}

TEST(RXAnalyze, StandardExceptionKeepsItsMessage)
{
    const std::unique_ptr<RX_Exception> copy = analyze(std::runtime_error("what it says"));
    EXPECT_EQ(copy->getCode(), 51536);
    EXPECT_EQ(copy->getArgument(0), "what it says");
    EXPECT_EQ(textOf(*copy), "Exception: what it says");
    EXPECT_EQ(typeOf(*copy), typeid(RX_ExFatal));
}

TEST(RXAnalyze, SystemErrorKeepsItsNumber)
{
    const std::unique_ptr<RX_Exception> copy =
        analyze(std::system_error(std::make_error_code(std::errc::permission_denied), "open"));
    EXPECT_EQ(copy->getCode(), 13);
    EXPECT_EQ(textOf(*copy), "Permission denied: open: Permission denied");
    EXPECT_EQ(analyze(std::system_error(4, std::system_category()))->getCode(), 4);
    // Numbers of other categories are not errno values.
    EXPECT_EQ(analyze(std::ios_base::failure("stream"))->getCode(), 51536);
    EXPECT_EQ(analyze(std::future_error(std::future_errc::no_state))->getCode(), 51536);
    EXPECT_EQ(analyze(std::system_error(0, std::generic_category()))->getCode(), 51536);
}

TEST(RXAnalyze, BadAllocBecomesENOMEM)
{
    EXPECT_EQ(analyze(std::bad_alloc())->getCode(), 12);
}

struct Foreign
{};

TEST(RXAnalyze, OtherExceptionsAreNamedByTheirType)
{
    EXPECT_EQ(textOf(*analyze(5)), "Exception of unknown type: int");
    EXPECT_EQ(textOf(*analyze(Foreign())), "Exception of unknown type: (anonymous namespace)::Foreign");
    EXPECT_EQ(analyze(5)->getCode(), 51537);
}

TEST(RXAnalyze, ReturnsNullWithoutACurrentException)
{
    EXPECT_EQ(RX_analyzeCurrentException_(), nullptr);
}

}
