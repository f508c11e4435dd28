#include <dalnim/sys/SysError.hpp>

#include <dalnim/sys/StackTrack.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::sys_err_num;
using com::kor::dal::nim::sys::sys_err_string;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::type::Cloneable;
using com::kor::dal::nim::type::Raiseable;

static_assert(std::is_base_of_v<std::runtime_error, system_error>);
static_assert(std::is_convertible_v<system_error*, std::exception*>);
static_assert(std::is_convertible_v<system_error*, StackTrace*>);
static_assert(std::is_convertible_v<system_error*, Cloneable*>);
static_assert(std::is_convertible_v<system_error*, Raiseable*>);
static_assert(std::is_same_v<int, decltype(std::declval<const system_error&>().error())>);
static_assert(std::is_nothrow_destructible_v<system_error>);
static_assert(std::is_same_v<int, decltype(sys_err_num())>);

TEST(SystemError, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("system_error", system_error::CLASS_NAME);
}

TEST(SystemError, OrderOfBasesAndVirtualFunctionsIsFixed)
{
    system_error error(1);
    const auto offset = [&error](const void* base) {
        return static_cast<const char*>(base) - reinterpret_cast<const char*>(&error);
    };
    EXPECT_EQ(0, offset(static_cast<std::runtime_error*>(&error)));
    EXPECT_GT(offset(static_cast<StackTrace*>(&error)), offset(static_cast<std::runtime_error*>(&error)));
    EXPECT_GT(offset(static_cast<Cloneable*>(&error)), offset(static_cast<StackTrace*>(&error)));
    EXPECT_GT(offset(static_cast<Raiseable*>(&error)), offset(static_cast<Cloneable*>(&error)));
    EXPECT_EQ(2, virtualSlot(&system_error::what));
    EXPECT_EQ(3, virtualSlot(&system_error::clone));
    EXPECT_EQ(4, virtualSlot(&system_error::raise));
}

TEST(SystemError, MessageIsThatOfTheNumber)
{
    const system_error error(2);
    EXPECT_EQ(2, error.error());
    EXPECT_STREQ("No such file or directory", error.what());
    const system_error invalid(22);
    EXPECT_EQ(22, invalid.error());
    EXPECT_STREQ("Invalid argument", invalid.what());
    const system_error none(0);
    EXPECT_EQ(0, none.error());
    EXPECT_STREQ("Success", none.what());
}

TEST(SystemError, NumberWithoutAMessageIsUnknownError)
{
    const system_error error(4000);
    EXPECT_EQ(4000, error.error());
    EXPECT_STREQ("Unknown error 4000", error.what());
    EXPECT_STREQ("Unknown error -1", system_error(-1).what());
}

TEST(SystemError, DefaultConstructorUsesErrno)
{
    errno = ENOENT;
    const system_error error;
    EXPECT_EQ(2, error.error());
    EXPECT_STREQ("No such file or directory", error.what());

    errno = 4000;
    const system_error unknown;
    EXPECT_EQ(4000, unknown.error());
    EXPECT_STREQ("Unknown error 4000", unknown.what());

    errno = EACCES;
    std::thread([] {
        errno = EAGAIN;
        const system_error other;
        EXPECT_EQ(11, other.error());
        EXPECT_STREQ("Resource temporarily unavailable", other.what());
    }).join();
    const system_error denied;
    EXPECT_EQ(13, denied.error());
    EXPECT_STREQ("Permission denied", denied.what());
}

TEST(SystemError, StoresNumberAndMessageUnchanged)
{
    const system_error literal(34, "  a text with blanks \n");
    EXPECT_EQ(34, literal.error());
    EXPECT_STREQ("  a text with blanks \n", literal.what());
    const system_error string(-1, String("text"));
    EXPECT_EQ(-1, string.error());
    EXPECT_STREQ("text", string.what());
    const system_error empty(0, "");
    EXPECT_EQ(0, empty.error());
    EXPECT_STREQ("", empty.what());
    const std::string lengthy(5000, 'x');
    EXPECT_EQ(lengthy, system_error(1, lengthy).what());
}

TEST(SystemError, TraceContainsTheTracks)
{
    const StackTrack outer("outer()", 1);
    const StackTrack inner("inner()", "C", "ns", 2);
    const StringVector tracks{"ns.C.inner():2", "outer():1"};
    EXPECT_EQ(tracks, system_error().trace());
    EXPECT_EQ(tracks, system_error(2).trace());
    EXPECT_EQ(tracks, system_error(2, "text").trace());
    EXPECT_EQ(tracks, system_error(2, String("text")).trace());
    EXPECT_EQ("ns.C.inner():2\nouter():1\n", system_error(2).toString());
    EXPECT_STREQ("text", system_error(2, "text").what()) << "the trace is not part of the message";
}

system_error failedElsewhere()
{
    const StackTrack track("elsewhere()", 7);
    return system_error(5, "failed elsewhere");
}

TEST(SystemError, CopiesItsTrace)
{
    const system_error source = failedElsewhere();
    const StackTrack here("here()", 0);
    const system_error copy(source);
    EXPECT_EQ(5, copy.error());
    EXPECT_STREQ("failed elsewhere", copy.what());
    EXPECT_EQ(StringVector{"elsewhere():7"}, copy.trace());
}

TEST(SystemError, AssignsAllItsParts)
{
    const StackTrack here("here()", 0);
    system_error target(1, "target");
    {
        const system_error source = failedElsewhere();
        EXPECT_EQ(&target, &(target = source));
    }
    EXPECT_EQ(5, target.error());
    EXPECT_STREQ("failed elsewhere", target.what());
    EXPECT_EQ((StringVector{"elsewhere():7", "here()"}), target.trace());
    EXPECT_EQ("elsewhere():7\nhere()\n", target.toString()) << "the text is built again";
}

TEST(SystemError, AssignmentKeepsTheCachedStringOfTheTrace)
{
    system_error target = failedElsewhere();
    EXPECT_EQ("elsewhere():7\n", target.toString());
    target = system_error(1);
    EXPECT_EQ(1, target.error());
    EXPECT_TRUE(target.empty());
    EXPECT_EQ("elsewhere():7\n", target.toString());
}

TEST(SystemError, ClonesAreEqualWhetherDeepOrNot)
{
    const system_error source = failedElsewhere();
    const StackTrack here("here()", 0);
    const Cloneable& cloneable = source;
    for (const bool deep : {false, true}) {
        const std::unique_ptr<Cloneable> clone(cloneable.clone(deep));
        const auto* const error = dynamic_cast<const system_error*>(clone.get());
        ASSERT_NE(nullptr, error);
        EXPECT_NE(&source, error);
        EXPECT_EQ(5, error->error());
        EXPECT_STREQ("failed elsewhere", error->what());
        EXPECT_EQ(StringVector{"elsewhere():7"}, error->trace());
    }
}

TEST(SystemError, ClonesHaveNoTraceOfTheCloningThread)
{
    const system_error source = failedElsewhere();
    std::unique_ptr<Cloneable> clone;
    std::thread([&] {
        const StackTrack cloning("cloning()", 0);
        clone.reset(source.clone());
    }).join();
    EXPECT_EQ(StringVector{"elsewhere():7"}, dynamic_cast<const system_error&>(*clone).trace());
}

TEST(SystemError, RaiseWorksThroughAPointerToTheBase)
{
    const std::unique_ptr<const std::exception> stored = std::make_unique<system_error>(failedElsewhere());
    const auto* const raiseable = dynamic_cast<const Raiseable*>(stored.get());
    ASSERT_NE(nullptr, raiseable);
    for (int i = 0; i < 2; ++i) {
        try {
            const StackTrack here("here()", 0);
            raiseable->raise();
        } catch (const system_error& error) {
            EXPECT_NE(stored.get(), &error) << "a copy is thrown";
            EXPECT_EQ(5, error.error());
            EXPECT_STREQ("failed elsewhere", error.what());
            EXPECT_EQ(StringVector{"elsewhere():7"}, error.trace());
        }
    }
    EXPECT_THROW(raiseable->raise(), system_error);
    EXPECT_STREQ("failed elsewhere", stored->what());
}

TEST(SystemError, CrossesThreads)
{
    std::unique_ptr<std::exception> stored;
    std::thread([&stored] {
        try {
            throw failedElsewhere();
        } catch (const std::exception& exc) {
            const auto& cloneable = dynamic_cast<const Cloneable&>(exc);
            stored.reset(dynamic_cast<std::exception*>(cloneable.clone(false)));
        }
    }).join();
    ASSERT_NE(nullptr, stored);
    try {
        dynamic_cast<const Raiseable&>(*stored).raise();
    } catch (const system_error& error) {
        EXPECT_EQ(5, error.error());
        EXPECT_EQ("elsewhere():7\n", error.toString());
    }
}

class special_error : public system_error
{
public:
    special_error() : system_error(5, "special") {}
};

TEST(SystemError, RaiseThrowsTheTypeThatImplementsIt)
{
    const special_error special;
    try {
        special.raise();
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(system_error), typeid(error));
        EXPECT_STREQ("special", error.what());
    }
}

TEST(SysErrNum, ReturnsErrno)
{
    errno = 5;
    EXPECT_EQ(5, sys_err_num());
    errno = 0;
    EXPECT_EQ(0, sys_err_num());
}

TEST(SysErrString, ReturnsTheMessageOfANumber)
{
    EXPECT_EQ("No such file or directory", sys_err_string(2));
    EXPECT_EQ("No such file or directory", sys_err_string(2U));
    EXPECT_EQ("Success", sys_err_string(0));
    EXPECT_EQ("Numerical result out of range", sys_err_string(34));
}

TEST(SysErrString, NumberWithoutAMessageIsNamed)
{
    EXPECT_EQ("Unknown error 4000", sys_err_string(4000));
    EXPECT_EQ("Unknown error 4000", sys_err_string(4000U));
    EXPECT_EQ("Unknown error -5", sys_err_string(-5));
    EXPECT_EQ("Unknown error -2147483648", sys_err_string(-2147483647 - 1));
    EXPECT_EQ("Unknown error 2147483647", sys_err_string(2147483647));
    EXPECT_EQ("Unknown error -1", sys_err_string(4294967295U));
}

TEST(SysErrString, ReturnsTheMessageOfErrno)
{
    errno = ENOENT;
    EXPECT_EQ("No such file or directory", sys_err_string());
    errno = 4000;
    EXPECT_EQ("Unknown error 4000", sys_err_string());
}

}
