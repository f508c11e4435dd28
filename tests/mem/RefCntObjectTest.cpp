#include <dalnim/mem/RefCntObject.hpp>

#include <dalnim/mem/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>

#include "Counted.hpp"
#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using memtest::Counted;
using memtest::Failing;
using memtest::RefCntObject;
using testing::MatchesRegex;
namespace type = com::kor::dal::nim::type;

template <class Call>
system_error errorOf(Call call)
{
    try {
        call();
    } catch (const system_error& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return system_error(0, "nothing was thrown");
}

void acquire(const RefCntObject& object, int times)
{
    for (int i = 0; i < times; ++i) {
        object.acquireRef();
    }
}

// Only the last release and subclasses may destroy an object.
static_assert(!std::is_destructible_v<RefCntObject>);
static_assert(std::has_virtual_destructor_v<RefCntObject>);
static_assert(std::is_base_of_v<type::Object, RefCntObject>);
static_assert(std::is_convertible_v<RefCntObject*, type::Object*>);

// Assignment and constructors are public.
static_assert(std::is_copy_assignable_v<RefCntObject>);

/** Two bases with one virtual root. */
class Twofold : public virtual type::Object
{};
class Both : public Counted, public Twofold
{};
static_assert(std::is_convertible_v<Both*, type::Object*>, "an object with two roots is one Object");

TEST(RefCntObject, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("RefCntObject", RefCntObject::CLASS_NAME);
    EXPECT_STREQ("com.kor.dal.nim.mem", com::kor::dal::nim::mem::NAMESPACE_NAME);
}

TEST(RefCntObject, VirtualFunctionsHaveTheirSlots)
{
    EXPECT_EQ(2, virtualSlot(&RefCntObject::acquireRef));
    EXPECT_EQ(3, virtualSlot(&RefCntObject::refCount));
    EXPECT_EQ(4, virtualSlot(static_cast<void (RefCntObject::*)() const>(&RefCntObject::releaseRef)));
    EXPECT_EQ(5, virtualSlot(static_cast<bool (RefCntObject::*)(const std::nothrow_t&) const>(
                     &RefCntObject::releaseRef)));
}

TEST(RefCntObject, StartsWithoutReferencesAndBias)
{
    const Counted object;
    EXPECT_EQ(0U, object.refCount(false));
    EXPECT_EQ(0U, object.refCount(true));
    EXPECT_EQ(0U, object.refBias());
    EXPECT_TRUE((std::is_same_v<std::uint32_t, decltype(object.refCount(true))>));
}

TEST(RefCntObject, IsNotAbstract)
{
    RefCntObject* const object = new RefCntObject;
    object->acquireRef();
    EXPECT_EQ(1U, object->refCount(false));
    object->releaseRef();
}

class Counting : public testing::TestWithParam<bool>
{
protected:
    int destroyed = 0;
    Counted* const object = new Counted(true, GetParam(), &destroyed);
};

TEST_P(Counting, IsDeletedWithTheLastReference)
{
    acquire(*object, 3);
    EXPECT_EQ(3U, object->refCount(false));
    object->releaseRef();
    EXPECT_TRUE(object->releaseRef(std::nothrow));
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(0, destroyed);
    object->releaseRef();
    EXPECT_EQ(1, destroyed);
}

TEST_P(Counting, IsDeletedByTheNonThrowingReleaseToo)
{
    object->acquireRef();
    EXPECT_TRUE(object->releaseRef(std::nothrow));
    EXPECT_EQ(1, destroyed);
}

TEST_P(Counting, ReleaseWithoutAReferenceThrows)
{
    const system_error error = errorOf([this] { object->releaseRef(); });
    EXPECT_EQ(-1, error.error());
    EXPECT_STREQ("Reference count < 0", error.what());
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(-1, static_cast<std::int32_t>(object->refCount(false)));
    delete object;
}

TEST_P(Counting, FailedReleaseIsNamedInTheTrace)
{
    const StackTrack track("caller()", 0);
    const system_error error = errorOf([this] { object->releaseRef(); });
    ASSERT_EQ(2U, error.trace().size());
    EXPECT_THAT(error.trace()[0],
                MatchesRegex("com\\.kor\\.dal\\.nim\\.mem\\.RefCntObject\\.releaseRef\\(\\):[0-9]+"));
    EXPECT_EQ("caller()", error.trace()[1]);
    delete object;
}

TEST_P(Counting, NonThrowingReleaseWithoutAReferenceReturnsFalse)
{
    EXPECT_FALSE(object->releaseRef(std::nothrow));
    EXPECT_FALSE(object->releaseRef(std::nothrow));
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(-2, static_cast<std::int32_t>(object->refCount(false)));
    delete object;
}

TEST_P(Counting, NegativeCountRecoversByAcquiring)
{
    EXPECT_FALSE(object->releaseRef(std::nothrow));
    acquire(*object, 2);
    EXPECT_EQ(1U, object->refCount(false));
    object->releaseRef();
    EXPECT_EQ(1, destroyed);
}

TEST_P(Counting, IsDeletedWhenTheCountReachesTheBias)
{
    acquire(*object, 5);
    object->refBias(2U);
    EXPECT_EQ(2U, object->refBias());
    EXPECT_EQ(5U, object->refCount(false));
    EXPECT_EQ(3U, object->refCount(true));
    object->releaseRef();
    EXPECT_TRUE(object->releaseRef(std::nothrow));
    EXPECT_EQ(1U, object->refCount(true));
    EXPECT_EQ(0, destroyed);
    object->releaseRef();
    EXPECT_EQ(1, destroyed);
}

/** Stores its count and its bias at its end. */
class Watched : public Counted
{
public:
    Watched(bool mt_safe, std::uint32_t& countAtEnd, std::uint32_t& biasAtEnd)
        : Counted(true, mt_safe), count_(countAtEnd), bias_(biasAtEnd)
    {
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    ~Watched() override
    {
        count_ = refCount(false);
        bias_ = refBias();
    }

private:
    std::uint32_t& count_;
    std::uint32_t& bias_;
};

class CountAtTheEnd : public testing::TestWithParam<std::tuple<bool, unsigned int>>
{};

TEST_P(CountAtTheEnd, EqualsTheBiasInTheDestructor)
{
    constexpr std::uint32_t NEVER = 4711;
    const auto [isSafe, bias] = GetParam();
    for (const bool mayThrow : {true, false}) {
        std::uint32_t countAtEnd = NEVER;
        std::uint32_t biasAtEnd = NEVER;
        auto* const object = new Watched(isSafe, countAtEnd, biasAtEnd);
        acquire(*object, static_cast<int>(bias) + 1);
        object->refBias(bias);
        if (mayThrow) {
            object->releaseRef();
        } else {
            EXPECT_TRUE(object->releaseRef(std::nothrow));
        }
        EXPECT_EQ(bias, countAtEnd);
        EXPECT_EQ(bias, biasAtEnd);
    }
}

INSTANTIATE_TEST_SUITE_P(SafeOrNot, CountAtTheEnd,
                         testing::Combine(testing::Bool(), testing::Values(0U, 1U, 3U)));

INSTANTIATE_TEST_SUITE_P(SafeOrNot, Counting, testing::Bool(), [](const testing::TestParamInfo<bool>& how) {
    return how.param ? "ThreadSafe" : "Plain";
});

TEST(RefCntObject, UncountedObjectSurvivesReleases)
{
    for (const bool mt_safe : {false, true}) {
        int destroyed = 0;
        {
            const Counted object(false, mt_safe, &destroyed);
            for (int i = 0; i < 100; ++i) {
                object.acquireRef();
            }
            EXPECT_EQ(0U, object.refCount(false));
            for (int i = 0; i < 200; ++i) {
                object.releaseRef();
                EXPECT_TRUE(object.releaseRef(std::nothrow));
            }
            EXPECT_EQ(0U, object.refCount(false));
            EXPECT_EQ(0U, object.refCount(true));
            EXPECT_EQ(0, destroyed);
        }
        EXPECT_EQ(1, destroyed);
    }
}

TEST(RefCntObject, CopiesStartWithoutReferences)
{
    Counted source;
    acquire(source, 5);
    source.refBias(1U);
    const Counted copy(source);
    EXPECT_EQ(0U, copy.refCount(false));
    EXPECT_EQ(0U, copy.refBias());
    EXPECT_EQ(5U, source.refCount(false));
    EXPECT_EQ(1U, source.refBias());
}

TEST(RefCntObject, CopiesCountInTheSameWay)
{
    const Counted uncounted(false, true);
    const Counted copy(uncounted);
    copy.acquireRef();
    EXPECT_EQ(0U, copy.refCount(false));

    const Counted counted;
    const Counted countedCopy(counted);
    countedCopy.acquireRef();
    EXPECT_EQ(1U, countedCopy.refCount(false));
}

TEST(RefCntObject, AssignmentKeepsTheCount)
{
    Counted target;
    acquire(target, 3);
    target.refBias(2U);
    target.value = 1;
    Counted source(false, false);
    source.value = 7;

    EXPECT_EQ(&target, &(target = source));
    EXPECT_EQ(7, target.value);
    EXPECT_EQ(3U, target.refCount(false));
    EXPECT_EQ(2U, target.refBias());
    target.acquireRef();
    EXPECT_EQ(4U, target.refCount(false)) << "still counted";

    source = target;
    source.acquireRef();
    EXPECT_EQ(0U, source.refCount(false)) << "still not counted";
    EXPECT_EQ(0U, source.refBias());
}

TEST(RefCntObject, BiasMustBeBelowTheCount)
{
    Counted object;
    const system_error none = errorOf([&] { object.refBias(0U); });
    EXPECT_EQ(34, none.error());

    acquire(object, 3);
    for (const unsigned int refused : {3U, 4U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        const system_error error = errorOf([&] { object.refBias(refused); });
        EXPECT_EQ(34, error.error());
        EXPECT_STREQ("Bias would exceed range limits.", error.what());
        EXPECT_EQ(0U, object.refBias());
    }
    object.refBias(2U);
    EXPECT_EQ(2U, object.refBias());
    object.refBias(0U);
    EXPECT_EQ(0U, object.refBias());
}

TEST(RefCntObject, BiasOneBelowTheCountMakesTheNextReleaseTheLast)
{
    int destroyed = 0;
    Counted* const object = new Counted(&destroyed);
    acquire(*object, 3);
    object->refBias(2U);
    object->releaseRef();
    EXPECT_EQ(1, destroyed);
}

TEST(RefCntObject, AdjustedBiasMayHaveAnyValueInItsRange)
{
    Counted object;
    acquire(object, 4);
    object.adjBias(3);
    EXPECT_EQ(3U, object.refBias());
    object.adjBias(0);
    object.adjBias(-2);
    EXPECT_EQ(1U, object.refBias());
    object.adjBias(-1);
    EXPECT_EQ(0U, object.refBias());
    object.incBias();
    object.incBias();
    EXPECT_EQ(2U, object.refBias());
    object.decBias();
    EXPECT_EQ(1U, object.refBias());
}

TEST(RefCntObject, ReleasesOnlyIfMoreThanTheFloorRemain)
{
    Counted object;
    EXPECT_FALSE(object.releaseRefAbove(0)) << "it has no reference";
    acquire(object, 4);
    EXPECT_TRUE(object.releaseRefAbove(1));
    EXPECT_TRUE(object.releaseRefAbove(1));
    EXPECT_EQ(2U, object.refCount());
    EXPECT_FALSE(object.releaseRefAbove(1));
    EXPECT_EQ(2U, object.refCount());
    EXPECT_TRUE(object.releaseRefAbove(0));
    EXPECT_FALSE(object.releaseRefAbove(0)) << "the last one must delete the object";
    EXPECT_EQ(1U, object.refCount());
    acquire(object, 2);
    object.incBias();
    EXPECT_FALSE(object.releaseRefAbove(1)) << "the bias is subtracted";
    EXPECT_TRUE(object.releaseRefAbove(0));
    EXPECT_EQ(1U, object.refCount());
}

TEST(RefCntObject, AdjustingTheBiasBeyondItsRangeThrows)
{
    Counted object;
    const auto expectRefused = [&object](auto call) {
        const auto before = object.refBias();
        const system_error error = errorOf(call);
        EXPECT_EQ(34, error.error());
        EXPECT_STREQ("Bias would exceed range limits.", error.what());
        EXPECT_EQ(before, object.refBias());
    };
    expectRefused([&] { object.adjBias(0); });
    object.acquireRef();
    expectRefused([&] { object.adjBias(-1); });
    expectRefused([&] { object.adjBias(1); });
    expectRefused([&] { object.incBias(); });
    expectRefused([&] { object.decBias(); });
    acquire(object, 2);
    object.refBias(2U);
    expectRefused([&] { object.adjBias(1); });
    expectRefused([&] { object.adjBias(-3); });
    expectRefused([&] { object.adjBias(0x7fffffff); });
    expectRefused([&] { object.adjBias(-0x7fffffff - 1); });
}

TEST(RefCntObject, BiasIsComparedWithTheUnsignedCount)
{
    Counted object;
    EXPECT_FALSE(object.releaseRef(std::nothrow));
    ASSERT_EQ(0xffffffffU, object.refCount(false));
    EXPECT_EQ(34, errorOf([&] { object.adjBias(-2); }).error()) << "below 0, though below the count";
    EXPECT_EQ(34, errorOf([&] { object.refBias(0xffffffffU); }).error());
    object.adjBias(5);
    EXPECT_EQ(5U, object.refBias());
    object.refBias(0xfffffffeU);
    EXPECT_EQ(0xfffffffeU, object.refBias());
}

TEST(RefCntObject, FailedBiasFunctionIsNamedInTheTrace)
{
    Counted object;
    const system_error set = errorOf([&] { object.refBias(0U); });
    ASSERT_EQ(1U, set.trace().size());
    EXPECT_THAT(set.trace()[0],
                MatchesRegex("com\\.kor\\.dal\\.nim\\.mem\\.RefCntObject\\.refBias\\(\\):[0-9]+"));
    const system_error adjusted = errorOf([&] { object.adjBias(1); });
    ASSERT_EQ(1U, adjusted.trace().size());
    EXPECT_THAT(adjusted.trace()[0],
                MatchesRegex("com\\.kor\\.dal\\.nim\\.mem\\.RefCntObject\\.adjBias\\(\\):[0-9]+"));
}

/** Overrides refCount() with a wrong count. */
class Boasting : public Counted
{
public:
    std::uint32_t refCount(bool) const override
    {
        return 1000;
    }
};

TEST(RefCntObject, BiasIgnoresAnOverriddenCount)
{
    Boasting object;
    object.acquireRef();
    EXPECT_EQ(34, errorOf([&] { object.refBias(1U); }).error());
    EXPECT_EQ(34, errorOf([&] { object.adjBias(1); }).error());
}

TEST(RefCntObject, ExceptionOfTheDestructorPropagates)
{
    int destroyed = 0;
    const Counted* object = new Failing(&destroyed);
    object->acquireRef();
    try {
        object->releaseRef();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("destructor failed", failure.what());
    }
    EXPECT_EQ(1, destroyed);

    object = new Failing(&destroyed);
    object->acquireRef();
    EXPECT_THROW(object->releaseRef(std::nothrow), std::runtime_error);
    EXPECT_EQ(2, destroyed);
}

TEST(RefCntObject, IsDestroyedWholeThroughAnyBase)
{
    Both* const both = new Both;
    const RefCntObject* const counted = both;
    EXPECT_EQ(static_cast<type::Object*>(static_cast<Counted*>(both)),
              static_cast<type::Object*>(static_cast<Twofold*>(both)));
    counted->acquireRef();
    counted->releaseRef();
}

}
