#include <dalnim/mem/ConstRcoRef.hpp>

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <type_traits>
#include <typeinfo>

#include "Counted.hpp"

namespace {

using com::kor::dal::nim::mem::ConstRefCntObjectRef;
using com::kor::dal::nim::mem::RefCntObjectRef;
using com::kor::dal::nim::sys::system_error;
using memtest::ConstRcoRef;
using memtest::Counted;
using memtest::Derived;
using memtest::Failing;
using memtest::OpenRef;
using memtest::RcoRef;
using memtest::RefCntObject;
using memtest::Unrelated;

typedef ConstRcoRef<Counted> ConstRef;

static_assert(sizeof(ConstRef) == sizeof(void*), "one pointer wide");
static_assert(std::is_same_v<ConstRefCntObjectRef, ConstRcoRef<RefCntObject>>);
static_assert(std::is_same_v<RefCntObjectRef, RcoRef<RefCntObject>>);

static_assert(std::is_same_v<const Counted*, decltype(std::declval<ConstRef&>().operator->())>);
static_assert(std::is_same_v<const Counted&, decltype(*std::declval<ConstRef&>())>);
static_assert(std::is_same_v<const Counted*, decltype(std::declval<ConstRef&>().get())>);

static_assert(std::is_convertible_v<const Counted*, ConstRef>);
static_assert(std::is_convertible_v<Derived*, ConstRef>);
static_assert(!std::is_convertible_v<Unrelated*, ConstRef>);
static_assert(!std::is_constructible_v<ConstRcoRef<Derived>, Counted*>);
static_assert(!std::is_constructible_v<ConstRcoRef<Derived>, ConstRef>);
static_assert(!std::is_convertible_v<ConstRef, Counted*>);
static_assert(!std::is_convertible_v<ConstRef, const Counted*>);
static_assert(!std::is_convertible_v<ConstRef, int>);
static_assert(std::is_convertible_v<ConstRef, const void*>);
static_assert(!std::is_convertible_v<ConstRef, void*>);

static_assert(std::is_nothrow_default_constructible_v<ConstRef>);
static_assert(std::is_nothrow_move_constructible_v<ConstRef>);
static_assert(std::is_nothrow_destructible_v<ConstRef>);
static_assert(noexcept(std::declval<ConstRef&>().clear()));

class ConstRcoRefTest : public testing::Test
{
protected:
    int destroyed = 0;
    Counted* const object = new Counted(&destroyed);
    ConstRef ref{object};
};

TEST(ConstRcoRef, DefaultIsEmpty)
{
    const ConstRef ref;
    EXPECT_EQ(nullptr, ref.get());
    EXPECT_TRUE(!ref);
    EXPECT_FALSE(ref);
    EXPECT_EQ(nullptr, static_cast<const void*>(ref));
}

TEST(ConstRcoRef, EveryNullPointerMakesAnEmptyReference)
{
    const Counted* const null = nullptr;
    EXPECT_TRUE(!ConstRef(null));
    EXPECT_TRUE(!ConstRef(nullptr));
    EXPECT_TRUE(!ConstRef(0));
    EXPECT_TRUE(!ConstRef(NULL));
    ConstRef ref(new Counted);
    ref = nullptr;
    EXPECT_TRUE(!ref);
    ref = NULL;
    EXPECT_TRUE(!ref);
}

TEST_F(ConstRcoRefTest, AcquiresAReference)
{
    EXPECT_EQ(object, ref.get());
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_FALSE(!ref);
    EXPECT_TRUE(ref);
}

TEST_F(ConstRcoRefTest, ConvertsToAPointerThatIsNotTheAddress)
{
    const void* const held = ref;
    EXPECT_EQ(1U, reinterpret_cast<std::uintptr_t>(held));
}

TEST_F(ConstRcoRefTest, AccessesTheObject)
{
    object->value = 5;
    EXPECT_EQ(5, ref->value);
    EXPECT_EQ(5, (*ref).value);
    EXPECT_EQ(object, &*ref);
}

TEST(ConstRcoRef, DereferencingAnEmptyReferenceThrows)
{
    const ConstRef ref;
    for (const bool arrow : {false, true}) {
        try {
            EXPECT_EQ(nullptr, arrow ? ref.operator->() : &*ref);
            FAIL() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(22, error.error());
            EXPECT_STREQ("Attempt to dereference null reference.", error.what());
        }
    }
}

TEST_F(ConstRcoRefTest, CopiesAcquireAndRelease)
{
    {
        const ConstRef copy(ref);
        EXPECT_EQ(object, copy.get());
        EXPECT_EQ(2U, object->refCount(false));
    }
    EXPECT_EQ(1U, object->refCount(false));
    ref.clear();
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(nullptr, ref.get());
    ref.clear();
    EXPECT_EQ(1, destroyed);
}

TEST_F(ConstRcoRefTest, SelfAssignmentDoesNotCount)
{
    ConstRef& same = ref;
    ref = same;
    EXPECT_EQ(1U, object->refCount(false));
    ref = object;
    EXPECT_EQ(1U, object->refCount(false));
    const ConstRef other(ref);
    ref = other;
    EXPECT_EQ(2U, object->refCount(false));
    EXPECT_EQ(0, destroyed);
}

TEST_F(ConstRcoRefTest, AssignmentReleasesTheOldObject)
{
    int otherDestroyed = 0;
    const ConstRef other(new Counted(&otherDestroyed));
    ref = other;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(2U, other->refCount(false));
    ref = static_cast<const Counted*>(nullptr);
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, otherDestroyed);
}

TEST(ConstRcoRef, ClearIgnoresAMissingReference)
{
    const Counted object;
    EXPECT_FALSE(object.releaseRef(std::nothrow));
    ConstRef ref(&object);
    EXPECT_EQ(0U, object.refCount(false));
    ref.clear();
    EXPECT_EQ(nullptr, ref.get());
    EXPECT_EQ(-1, static_cast<std::int32_t>(object.refCount(false)));
}

TEST(ConstRcoRef, AssignmentThrowsForAMissingReference)
{
    const Counted object;
    EXPECT_FALSE(object.releaseRef(std::nothrow));
    const ConstRef other(new Counted);
    ConstRef ref(&object);
    for (const bool move : {false, true}) {
        try {
            move ? ref = ConstRef(other) : ref = other;
            FAIL() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(-1, error.error());
            EXPECT_STREQ("Reference count < 0", error.what());
        }
        EXPECT_EQ(&object, ref.get());
        EXPECT_EQ(1U, other->refCount(false));
    }
}

TEST(ConstRcoRef, ReferencesToUncountedObjectsMayBeOnTheStack)
{
    int destroyed = 0;
    {
        const Counted object(false, true, &destroyed);
        {
            const ConstRef ref(&object);
            const ConstRef copy(ref);
            EXPECT_EQ(0U, object.refCount(false));
        }
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(ConstRcoRef, ComparesTheObjects)
{
    const ConstRef a(new Counted);
    const ConstRef b(new Counted);
    const ConstRef a2(a);
    const ConstRef none;
    EXPECT_TRUE(a == a2);
    EXPECT_FALSE(a != a2);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a == none);
    EXPECT_TRUE(none == ConstRef());
    EXPECT_FALSE(a < a2);
    EXPECT_EQ(std::less<const Counted*>()(a.get(), b.get()), a < b);
    EXPECT_EQ(std::less<const Counted*>()(b.get(), a.get()), b < a);
    EXPECT_TRUE(none < a);
}

TEST(ConstRcoRef, ComparesReferencesOfRelatedTypes)
{
    const RcoRef<Derived> a(new Derived);
    const RcoRef<Derived> b(new Derived);
    const RcoRef<Counted> a2(a);
    const ConstRcoRef<RefCntObject> a3(a.get());
    EXPECT_TRUE(a == a2);
    EXPECT_TRUE(a2 == a);
    EXPECT_FALSE(a != a2);
    EXPECT_TRUE(a3 == a);
    EXPECT_TRUE(a == a3);
    EXPECT_FALSE(b == a2);
    EXPECT_TRUE(a2 != b);
    EXPECT_FALSE(a3 == b);
    EXPECT_NE(a2 < b, b < a2);
}

TEST(ConstRcoRef, ComparesWithPlainPointers)
{
    const RcoRef<Derived> ref(new Derived);
    const Counted* const base = ref.get();
    const RcoRef<Derived> other(new Derived);
    EXPECT_TRUE(ref == base);
    EXPECT_TRUE(base == ref);
    EXPECT_FALSE(ref != base);
    EXPECT_FALSE(base != ref);
    EXPECT_FALSE(other == base);
    EXPECT_FALSE(base == other);
    EXPECT_TRUE(other != base);
    EXPECT_TRUE(base != other);
    EXPECT_FALSE(ref == nullptr);
    EXPECT_TRUE(nullptr != ref);
    EXPECT_TRUE(ref != NULL);
    EXPECT_TRUE(RcoRef<Derived>() == nullptr);
    EXPECT_TRUE(nullptr == RcoRef<Derived>());
}

TEST(ConstRcoRef, IsAKeyOfMaps)
{
    const RcoRef<Counted> a(new Counted);
    const RcoRef<Counted> b(new Counted);
    std::map<ConstRef, int> values;
    values[a] = 1;
    values[b] = 2;
    values[a] = 3;
    EXPECT_EQ(2U, values.size());
    EXPECT_EQ(3, values[ConstRef(a)]);
    std::set<RcoRef<Counted>> refs{a, b, a};
    EXPECT_EQ(2U, refs.size());
    EXPECT_EQ(1U, refs.count(b));
}

TEST(ConstRcoRef, AssignPtrAcceptsAnObjectOfItsType)
{
    OpenRef<Derived> ref;
    Derived* const derived = new Derived;
    ref.assignPtr(static_cast<const RefCntObject*>(derived));
    EXPECT_EQ(derived, ref.get());
    EXPECT_EQ(1U, derived->refCount(false));
    ref.assignPtr(nullptr);
    EXPECT_EQ(nullptr, ref.get());
}

TEST(ConstRcoRef, AssignPtrOfAnotherTypeThrowsAndChangesNothing)
{
    OpenRef<Derived> ref;
    Derived* const derived = new Derived;
    ref.assignPtr(derived);
    const RcoRef<Unrelated> unrelated(new Unrelated);
    const RcoRef<Counted> base(new Counted);
    EXPECT_THROW(ref.assignPtr(unrelated.get()), std::bad_cast);
    EXPECT_THROW(ref.assignPtr(base.get()), std::bad_cast);
    EXPECT_EQ(derived, ref.get());
    EXPECT_EQ(1U, derived->refCount(false));
    EXPECT_EQ(1U, unrelated->refCount(false));
    EXPECT_EQ(1U, base->refCount(false));
}

TEST(ConstRcoRef, AssignPtrToTheRootAcceptsEveryObject)
{
    OpenRef<RefCntObject> ref;
    const RcoRef<Unrelated> unrelated(new Unrelated);
    ref.assignPtr(unrelated.get());
    EXPECT_EQ(static_cast<const RefCntObject*>(unrelated.get()), ref.get());
    EXPECT_EQ(2U, unrelated->refCount(false));
    ref.assignPtr(nullptr);
    EXPECT_EQ(1U, unrelated->refCount(false));
}

TEST(ConstRcoRefDeathTest, ThrowingDestructorTerminatesIfAReferenceIsCleared)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ConstRcoRef<Failing> ref(new Failing);
    EXPECT_DEATH(ref.clear(), "destructor failed");
    // The reference cannot release it.
    ref->acquireRef();
    const Failing* const object = ref.get();
    ref.clear();
    EXPECT_THROW(object->releaseRef(), std::runtime_error);
}

TEST(ConstRcoRefDeathTest, ThrowingDestructorTerminatesIfAReferenceIsDestroyed)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(ConstRcoRef<Failing>(new Failing), "destructor failed");
}

}
