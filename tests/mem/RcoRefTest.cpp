#include <dalnim/mem/RcoRef.hpp>

#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "Counted.hpp"

namespace {

using com::kor::dal::nim::sys::system_error;
using memtest::ConstRcoRef;
using memtest::Counted;
using memtest::Derived;
using memtest::Node;
using memtest::RcoRef;
using memtest::RefCntObject;
using memtest::Stubborn;
using memtest::Unrelated;

typedef RcoRef<Counted> Ref;

static_assert(sizeof(Ref) == sizeof(void*), "one pointer wide");
static_assert(std::is_base_of_v<ConstRcoRef<Counted>, Ref>);

// References convert to bases and to const, but not back.
static_assert(std::is_convertible_v<RcoRef<Derived>, Ref>);
static_assert(std::is_convertible_v<RcoRef<Derived>, RcoRef<RefCntObject>>);
static_assert(std::is_convertible_v<const RcoRef<Derived>&, Ref>);
static_assert(!std::is_constructible_v<RcoRef<Derived>, Ref>);
static_assert(!std::is_constructible_v<RcoRef<Unrelated>, Ref>);
static_assert(std::is_convertible_v<Ref, ConstRcoRef<Counted>>);
static_assert(!std::is_constructible_v<Ref, ConstRcoRef<Counted>>);
static_assert(!std::is_constructible_v<Ref, const Counted*>);
static_assert(!std::is_assignable_v<Ref&, const Counted*>);
static_assert(!std::is_assignable_v<Ref&, ConstRcoRef<Counted>>);
static_assert(!std::is_assignable_v<RcoRef<Derived>&, Ref>);
static_assert(!std::is_assignable_v<Ref&, RcoRef<Unrelated>>);
static_assert(std::is_assignable_v<Ref&, RcoRef<Derived>>);
static_assert(std::is_assignable_v<Ref&, Derived*>);

// A const reference gives const access to its object.
static_assert(std::is_same_v<Counted*, decltype(std::declval<Ref&>().operator->())>);
static_assert(std::is_same_v<Counted&, decltype(*std::declval<Ref&>())>);
static_assert(std::is_same_v<Counted*, decltype(std::declval<Ref&>().get())>);
static_assert(std::is_same_v<const Counted*, decltype(std::declval<const Ref&>().operator->())>);
static_assert(std::is_same_v<const Counted&, decltype(*std::declval<const Ref&>())>);
static_assert(std::is_same_v<const Counted*, decltype(std::declval<const Ref&>().get())>);

static_assert(std::is_nothrow_default_constructible_v<Ref>);
static_assert(std::is_nothrow_move_constructible_v<Ref>, "vectors move it");
static_assert(std::is_nothrow_destructible_v<Ref>);

class RcoRefTest : public testing::Test
{
protected:
    int destroyed = 0;
    Counted* const object = new Counted(&destroyed);
    Ref ref{object};

    int otherDestroyed = 0;
    Counted* const other = new Counted(&otherDestroyed);
    Ref otherRef{other};
};

TEST_F(RcoRefTest, AccessesTheObjectForWriting)
{
    ref->value = 1;
    (*ref).value += 1;
    ref.get()->value += 1;
    EXPECT_EQ(3, object->value);
}

TEST(RcoRef, DereferencingAnEmptyReferenceThrows)
{
    Ref ref;
    for (const bool arrow : {false, true}) {
        try {
            (arrow ? ref.operator->() : &*ref)->value = 1;
            FAIL() << "nothing was thrown";
        } catch (const system_error& error) {
            EXPECT_EQ(22, error.error());
            EXPECT_STREQ("Attempt to dereference null reference.", error.what());
        }
    }
    EXPECT_EQ(nullptr, ref.get());
}

TEST(RcoRef, EveryNullPointerMakesAnEmptyReference)
{
    EXPECT_TRUE(!Ref(nullptr));
    EXPECT_TRUE(!Ref(0));
    EXPECT_TRUE(!Ref(NULL));
    Ref ref(new Counted);
    ref = nullptr;
    EXPECT_TRUE(!ref);
    ref = 0;
    EXPECT_TRUE(!ref);
}

TEST_F(RcoRefTest, CopiesAcquire)
{
    Ref copy(ref);
    EXPECT_EQ(2U, object->refCount(false));
    copy = otherRef;
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(2U, other->refCount(false));
    copy = object;
    EXPECT_EQ(2U, object->refCount(false));
    EXPECT_EQ(1U, other->refCount(false));
}

TEST_F(RcoRefTest, SelfAssignmentDoesNotCount)
{
    Ref& same = ref;
    ref = same;
    ref = object;
    ref = ref.get();
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(0, destroyed);
}

/** Counts the calls of acquireRef(). */
class Asked : public Counted
{
public:
    void acquireRef() const override
    {
        ++acquired;
        Counted::acquireRef();
    }
    mutable int acquired = 0;
};

TEST(RcoRef, AssigningTheSameObjectDoesNotCount)
{
    RcoRef<Asked> ref(new Asked);
    const RcoRef<Asked> other(ref);
    EXPECT_EQ(2, ref->acquired);
    RcoRef<Asked>& same = ref;
    ref = same;
    ref = other;
    ref = ref.get();
    RcoRef<Asked> moved(std::move(ref));
    ref = std::move(moved);
    EXPECT_EQ(2, ref->acquired);
    EXPECT_EQ(2U, ref->refCount(false));
}

TEST(RcoRef, ConvertsToTheBase)
{
    int destroyed = 0;
    {
        RcoRef<RefCntObject> root;
        {
            const RcoRef<Derived> derived(new Derived(&destroyed));
            const Ref base(derived);
            EXPECT_EQ(derived.get(), base.get());
            EXPECT_EQ(2U, derived->refCount(false));
            root = base;
            EXPECT_EQ(3U, derived->refCount(false));
        }
        EXPECT_EQ(0, destroyed);
        EXPECT_EQ(1U, root->refCount(false));
    }
    EXPECT_EQ(1, destroyed);
}

TEST_F(RcoRefTest, OnlyUnconstRemovesConst)
{
    const ConstRcoRef<Counted> constRef(ref);
    EXPECT_EQ(2U, object->refCount(false));
    Ref dropped = Ref::unconst(constRef);
    EXPECT_EQ(3U, object->refCount(false));
    dropped->value = 9;
    EXPECT_EQ(9, constRef->value);
    EXPECT_TRUE(!Ref::unconst(ConstRcoRef<Counted>()));
}

TEST_F(RcoRefTest, MovingDoesNotCount)
{
    Ref taken(std::move(ref));
    EXPECT_EQ(object, taken.get());
    EXPECT_EQ(nullptr, ref.get());
    EXPECT_EQ(1U, object->refCount(false));

    otherRef = std::move(taken);
    EXPECT_EQ(1, otherDestroyed);
    EXPECT_EQ(object, otherRef.get());
    EXPECT_EQ(nullptr, taken.get());
    EXPECT_EQ(1U, object->refCount(false));

    const ConstRcoRef<Counted> constRef(std::move(otherRef));
    EXPECT_EQ(object, constRef.get());
    EXPECT_EQ(nullptr, otherRef.get());
    EXPECT_EQ(1U, object->refCount(false));
}

TEST_F(RcoRefTest, MovingToItselfChangesNothing)
{
    Ref& same = ref;
    ref = std::move(same);
    EXPECT_EQ(object, ref.get());
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(0, destroyed);
}

TEST_F(RcoRefTest, MovingBetweenReferencesToOneObjectReleasesOne)
{
    Ref second(ref);
    ref = std::move(second);
    EXPECT_EQ(object, ref.get());
    EXPECT_EQ(nullptr, second.get());
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(0, destroyed);
}

TEST_F(RcoRefTest, MovingAnEmptyReferenceClears)
{
    ref = Ref();
    EXPECT_EQ(nullptr, ref.get());
    EXPECT_EQ(1, destroyed);
    ref = Ref();
    EXPECT_EQ(1, destroyed);
}

TEST_F(RcoRefTest, SwappingDoesNotCount)
{
    std::swap(ref, otherRef);
    EXPECT_EQ(other, ref.get());
    EXPECT_EQ(object, otherRef.get());
    EXPECT_EQ(1U, object->refCount(false));
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, destroyed + otherDestroyed);
}

TEST(RcoRef, SurvivesReallocationOfAVector)
{
    int destroyed = 0;
    {
        std::vector<Ref> refs;
        for (int i = 0; i < 100; ++i) {
            refs.push_back(new Counted(&destroyed));
        }
        for (const Ref& ref : refs) {
            EXPECT_EQ(1U, ref->refCount(false));
        }
        refs.erase(refs.begin(), refs.begin() + 40);
        EXPECT_EQ(40, destroyed);
    }
    EXPECT_EQ(100, destroyed);
}

// The new object is referenced only by the old one, which is deleted.

TEST(RcoRef, AdvancesAlongAChainByCopy)
{
    int destroyed = 0;
    RcoRef<Node> head(new Node(&destroyed));
    head->next = new Node(&destroyed);
    Node* const second = head->next.get();
    head = head->next;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(second, head.get());
    EXPECT_EQ(1U, second->refCount(false));
}

TEST(RcoRef, AdvancesAlongAChainByPointer)
{
    int destroyed = 0;
    RcoRef<Node> head(new Node(&destroyed));
    head->next = new Node(&destroyed);
    Node* const second = head->next.get();
    head = head->next.get();
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(1U, second->refCount(false));
}

TEST(RcoRef, AdvancesAlongAChainByMove)
{
    int destroyed = 0;
    RcoRef<Node> head(new Node(&destroyed));
    head->next = new Node(&destroyed);
    Node* const second = head->next.get();
    head = std::move(head->next);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(second, head.get());
    EXPECT_EQ(1U, second->refCount(false));
}

// The reference itself is part of the object that the assignment deletes.

TEST(RcoRef, BreaksACycleFromWithinByCopy)
{
    int destroyed = 0;
    int otherDestroyed = 0;
    const RcoRef<Node> other(new Node(&otherDestroyed));
    Node* const node = new Node(&destroyed);
    node->next = node;
    node->next = other;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, otherDestroyed);
}

TEST(RcoRef, BreaksACycleFromWithinByMove)
{
    int destroyed = 0;
    int otherDestroyed = 0;
    RcoRef<Node> other(new Node(&otherDestroyed));
    Node* const node = new Node(&destroyed);
    node->next = node;
    node->next = std::move(other);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(1, otherDestroyed) << "deleted with the last node that referenced it";
    EXPECT_EQ(nullptr, other.get());
}

TEST(RcoRef, BreaksACycleFromWithinByClearing)
{
    int destroyed = 0;
    Node* const node = new Node(&destroyed);
    node->next = node;
    node->next.clear();
    EXPECT_EQ(1, destroyed);
}

/** Assigns another object to its reference in its destructor. */
class Replacing : public Counted
{
public:
    Replacing(Ref& place, Counted* substitute) : place_(place), substitute_(substitute) {}
    ~Replacing() override
    {
        place_ = substitute_;
    }

private:
    Ref& place_;
    Counted* substitute_;
};

TEST(RcoRef, DestructorOfTheObjectMayAssignToTheReference)
{
    int droppedOver = 0;
    int destroyed = 0;
    Counted* const substitute = new Counted(&destroyed);
    {
        Ref place;
        place = new Replacing(place, substitute);
        place = new Counted(&droppedOver);
        EXPECT_EQ(substitute, place.get());
        EXPECT_EQ(1U, substitute->refCount(false));
        EXPECT_EQ(1, droppedOver);
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

// Releases that throw.

class RefusedRelease : public testing::Test
{
protected:
    int destroyed = 0;
    int otherDestroyed = 0;
    Stubborn* const object = new Stubborn(&destroyed);
    Counted* const other = new Counted(&otherDestroyed);
    Ref ref{object};

    void SetUp() override
    {
        object->throwsOnRelease = true;
    }
    void TearDown() override
    {
        EXPECT_EQ(object, ref.get());
        EXPECT_EQ(1U, object->refCount(false));
        EXPECT_EQ(0, destroyed);
        object->throwsOnRelease = false;
    }
};

TEST_F(RefusedRelease, AssignmentReleasesTheNewObject)
{
    const Ref otherRef(other);
    EXPECT_THROW(ref = otherRef, std::runtime_error);
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, otherDestroyed);
}

TEST_F(RefusedRelease, AssignmentDeletesANewObject)
{
    EXPECT_THROW(ref = other, std::runtime_error);
    EXPECT_EQ(1, otherDestroyed);
}

TEST_F(RefusedRelease, AssignmentOfNullKeepsTheOldObject)
{
    EXPECT_THROW(ref = nullptr, std::runtime_error);
    EXPECT_THROW(ref = Ref(), std::runtime_error);
    delete other;
}

TEST_F(RefusedRelease, MoveReturnsThePointerToItsSource)
{
    Ref otherRef(other);
    EXPECT_THROW(ref = std::move(otherRef), std::runtime_error);
    EXPECT_EQ(other, otherRef.get());
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, otherDestroyed);
}

TEST_F(RefusedRelease, MoveOfAConstReferenceReturnsThePointerToItsSource)
{
    ConstRcoRef<Counted> constRef(object);
    ConstRcoRef<Counted> otherRef(other);
    EXPECT_THROW(constRef = std::move(otherRef), std::runtime_error);
    EXPECT_EQ(object, constRef.get());
    EXPECT_EQ(other, otherRef.get());
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(0, otherDestroyed);
}

TEST_F(RefusedRelease, MoveReleasesWhatTheReleaseAssignedToItsSource)
{
    int assignedDestroyed = 0;
    Ref otherRef(other);
    object->beforeRefusing = [&] { otherRef = new Counted(&assignedDestroyed); };
    EXPECT_THROW(ref = std::move(otherRef), std::runtime_error);
    EXPECT_EQ(other, otherRef.get());
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(1, assignedDestroyed);
}

TEST_F(RefusedRelease, AssignmentReleasesWhatTheReleaseAssignedToTheReference)
{
    int assignedDestroyed = 0;
    const Ref otherRef(other);
    object->beforeRefusing = [&] { ref = new Counted(&assignedDestroyed); };
    EXPECT_THROW(ref = otherRef, std::runtime_error);
    EXPECT_EQ(1U, other->refCount(false));
    EXPECT_EQ(1, assignedDestroyed);
}

TEST_F(RefusedRelease, ClearUsesTheNonThrowingRelease)
{
    Ref second(ref);
    EXPECT_EQ(2U, object->refCount(false));
    second.clear();
    EXPECT_EQ(1U, object->refCount(false));
    delete other;
}

}
