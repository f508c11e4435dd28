#include <qv/rtlapi/RX_Closure.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

#include <pthread.h>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_ClosureM0.hpp>
#include <qv/rtlapi/RX_ClosureM0S.hpp>
#include <qv/rtlapi/RX_ClosureS_.hpp>
#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include "Threads.hpp"

struct QvTestTarget
{
    void count()
    {
        ++calls;
    }
    void fail()
    {
        throw std::runtime_error("target failed");
    }
    void warn()
    {
        throw RX_ExWarning(16, "busy");
    }
    void throwNumber()
    {
        throw 5;
    }
    void pass()
    {
        gate.pass();
    }

    int calls = 0;
    qvtest::Gate gate;
};

namespace {

using qvtest::Caller;

static_assert(std::is_base_of_v<RX_Lockable, RX_Closure> && std::is_abstract_v<RX_Closure>);

typedef void (QvTestTarget::*Member)();
static_assert(std::is_base_of_v<RX_ClosureM_<QvTestTarget, Member>, RX_ClosureM0<QvTestTarget>>);
static_assert(std::is_base_of_v<RX_ClosureMS_<QvTestTarget, Member>, RX_ClosureM0S<QvTestTarget>>);
static_assert(std::is_base_of_v<RX_ClosureS_<void (*)()>, RX_Closure0S>);

/** The creator's reference to a closure. */
template <class T>
class Holder
{
public:
    explicit Holder(T* closure) : _closure(closure) {}
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder()
    {
        _closure->detach();
    }
    T* operator->() const
    {
        return _closure;
    }
    T& operator*() const
    {
        return *_closure;
    }

private:
    T* _closure;
};

int functionCalls = 0;

void countCall()
{
    ++functionCalls;
}

void failCall()
{
    throw RX_ExFatal(2, "function failed");
}

TEST(RXClosure, CallsAFunction)
{
    functionCalls = 0;
    const Holder<RX_Closure> closure(new RX_Closure_<void (*)()>(countCall));
    closure->apply();
    closure->apply();
    EXPECT_EQ(functionCalls, 2);
}

TEST(RXClosure, CallsAFunctionObject)
{
    int calls = 0;
    const auto count = [&calls] { ++calls; };
    const Holder<RX_Closure> closure(new RX_Closure_<decltype(count)>(count));
    closure->apply();
    EXPECT_EQ(calls, 1);
}

TEST(RXClosure, CallsAMemberFunction)
{
    QvTestTarget target;
    const Holder<RX_Closure> closure(new RX_ClosureM0<QvTestTarget>(&target, &QvTestTarget::count));
    closure->apply();
    EXPECT_EQ(target.calls, 1);
}

struct ConstTarget
{
    int get() const
    {
        return ++calls;
    }

    mutable int calls = 0;
};

TEST(RXClosure, CallsAConstMemberFunctionWithAResult)
{
    const ConstTarget target;
    typedef RX_ClosureM_<const ConstTarget, int (ConstTarget::*)() const> Closure;
    const Holder<RX_Closure> closure(new Closure(&target, &ConstTarget::get));
    closure->apply();
    EXPECT_EQ(target.calls, 1);
}

TEST(RXClosure, PropagatesExceptions)
{
    QvTestTarget target;
    const Holder<RX_Closure> closure(new RX_ClosureM0<QvTestTarget>(&target, &QvTestTarget::fail));
    EXPECT_THROW(closure->apply(), std::runtime_error);
}

TEST(RXClosure, CanBeLocked)
{
    const Holder<RX_Closure> closure(new RX_Closure_<void (*)()>(countCall));
    const RX_Locked_ locked(*closure);
    EXPECT_EQ(closure->tryLock(), 0);
}

TEST(RXClosure, AsStringIsThePrefixAndTheTypeName)
{
    QvTestTarget target;
    const Holder<RX_Closure> closure(new RX_ClosureM0<QvTestTarget>(&target, &QvTestTarget::count));
    EXPECT_STREQ(closure->asString(RX_String::none).data(), "RX_ClosureM0<QvTestTarget>");
    EXPECT_STREQ(closure->asString("worker").data(), "worker RX_ClosureM0<QvTestTarget>");
    const Holder<RX_Closure0S> other(new RX_Closure0S(countCall));
    EXPECT_STREQ(other->asString(RX_String::none).data(), "RX_Closure0S");
}

TEST(RXClosureS, WaitThrowsTheExceptionOfTheCall)
{
    QvTestTarget target;
    const Holder<RX_ClosureM0S<QvTestTarget>> closure(
        new RX_ClosureM0S<QvTestTarget>(&target, &QvTestTarget::warn));
    EXPECT_NO_THROW(closure->apply());
    try {
        closure->waitForCompletion();
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(RX_ExWarning));
        EXPECT_STREQ(exception.asString(78).data(), "Device or resource busy: busy");
    }
    // It remains stored, and is thrown again.
    EXPECT_THROW(closure->waitForCompletion(), RX_ExWarning);
    EXPECT_THROW(closure->waitForCompletion(RX_RelTime(1, 0)), RX_ExWarning);
    // The lock has been released.
    EXPECT_EQ(closure->tryLock(), 1);
    closure->unlock();
}

TEST(RXClosureS, WaitThrowsExceptionsOfAnyType)
{
    QvTestTarget target;
    const Holder<RX_ClosureM0S<QvTestTarget>> standard(
        new RX_ClosureM0S<QvTestTarget>(&target, &QvTestTarget::fail));
    standard->apply();
    try {
        standard->waitForCompletion();
        ADD_FAILURE();
    } catch (const RX_ExFatal& exception) {
        EXPECT_STREQ(exception.asString(78).data(), "Exception: target failed");
    }
    const Holder<RX_ClosureM0S<QvTestTarget>> number(
        new RX_ClosureM0S<QvTestTarget>(&target, &QvTestTarget::throwNumber));
    number->apply();
    try {
        number->waitForCompletion();
        ADD_FAILURE();
    } catch (const RX_ExFatal& exception) {
        EXPECT_STREQ(exception.asString(78).data(), "Exception of unknown type: int");
    }
    const Holder<RX_Closure0S> function(new RX_Closure0S(failCall));
    function->apply();
    EXPECT_THROW(function->waitForCompletion(), RX_ExFatal);
}

TEST(RXClosureS, WaitReturnsImmediatelyAfterTheCall)
{
    QvTestTarget target;
    const Holder<RX_ClosureM0S<QvTestTarget>> closure(
        new RX_ClosureM0S<QvTestTarget>(&target, &QvTestTarget::count));
    closure->apply();
    closure->waitForCompletion();
    closure->waitForCompletion(RX_RelTime(0, 0));
    closure->waitForCompletion(RX_AbsTime(RX_RelTime(-1, 0)));
    EXPECT_EQ(target.calls, 1);
}

TEST(RXClosureS, CallsAFunctionObject)
{
    int calls = 0;
    const auto count = [&calls] { ++calls; };
    const Holder<RX_ClosureS_<decltype(count)>> closure(new RX_ClosureS_<decltype(count)>(count));
    closure->apply();
    closure->waitForCompletion();
    EXPECT_EQ(calls, 1);
}

TEST(RXClosureS, WaitBlocksUntilTheCallReturns)
{
    QvTestTarget target;
    const Holder<RX_ClosureM0S<QvTestTarget>> closure(
        new RX_ClosureM0S<QvTestTarget>(&target, &QvTestTarget::pass));
    std::atomic<bool> isOpen{false};
    const auto wait = [&](auto... deadline) {
        closure->waitForCompletion(deadline...);
        EXPECT_TRUE(isOpen);
    };
    Caller first([&] { wait(); });
    Caller second([&] { wait(RX_RelTime(std::numeric_limits<int>::max(), 0)); });
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    Caller runner([&] { closure->apply(); });
    EXPECT_TRUE(runner.awaitAsleep());
    isOpen = true;
    target.gate.open();
}

TEST(RXClosureS, WaitThrowsAWarningAtTheTimeOut)
{
    const Holder<RX_Closure0S> closure(new RX_Closure0S(countCall));
    for (const bool isInterval : {true, false}) {
        try {
            if (isInterval) {
                closure->waitForCompletion(RX_RelTime(0, 1000000));
            } else {
                closure->waitForCompletion(RX_AbsTime(RX_RelTime(-1, 0)));
            }
            ADD_FAILURE();
        } catch (const RX_Exception& exception) {
            EXPECT_EQ(typeid(exception), typeid(RX_ExWarning));
            EXPECT_EQ(exception.getCode(), 62);
        }
    }
    EXPECT_EQ(closure->tryLock(), 1);
    closure->unlock();
}

TEST(RXClosureS, WaitReturnsAfterMarkDoneWithoutACall)
{
    functionCalls = 0;
    const Holder<RX_Closure0S> closure(new RX_Closure0S(countCall));
    closure->markDone();
    closure->waitForCompletion();
    EXPECT_EQ(functionCalls, 0);
}

TEST(RXClosureS, WaitThrowsIfTheCallEndsItsThread)
{
    const auto endThread = [] { pthread_exit(nullptr); };
    const Holder<RX_ClosureS_<decltype(endThread)>> closure(new RX_ClosureS_<decltype(endThread)>(endThread));
    std::thread runner([&closure] { closure->apply(); });
    try {
        closure->waitForCompletion();
        ADD_FAILURE();
    } catch (const RX_ExFatal& exception) {
        EXPECT_EQ(exception.getCode(), 125);
    }
    runner.join();
}

TEST(RXClosureS, CanBeDestroyedWithAStoredException)
{
    const Holder<RX_Closure0S> closure(new RX_Closure0S(failCall));
    closure->apply();
    closure->apply();
}

}
