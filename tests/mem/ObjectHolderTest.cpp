#include <dalnim/mem/ObjectHolder.hpp>

#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Counted.hpp"

namespace {

using com::kor::dal::nim::mem::ObjectHolder;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::type::Object;
using memtest::Counted;
using memtest::RcoRef;
using memtest::Stubborn;

typedef ObjectHolder::StorageMode StorageMode;

static_assert(ObjectHolder::SM_NO_ACTION == 0 && ObjectHolder::SM_DEREF_ONLY == 1);
static_assert(ObjectHolder::SM_ACQUIRE_ONLY == 2 && ObjectHolder::SM_ACQUIRE_AND_DEREF == 3);
static_assert(std::is_same_v<std::underlying_type_t<StorageMode>, std::uint32_t>);
static_assert(sizeof(ObjectHolder) == 2 * sizeof(void*), "one pointer and the flags");
static_assert(std::is_nothrow_default_constructible_v<ObjectHolder>);
static_assert(std::is_nothrow_destructible_v<ObjectHolder>);
static_assert(!std::has_virtual_destructor_v<ObjectHolder>);
static_assert(!std::is_convertible_v<Object*, ObjectHolder>, "the mode must be said");
static_assert(
    std::is_same_v<decltype(std::declval<ObjectHolder&>().assign(nullptr, StorageMode())), ObjectHolder&>);
static_assert(std::is_convertible_v<ObjectHolder, Object*>);
static_assert(std::is_convertible_v<const ObjectHolder, const Object*>);
static_assert(!std::is_convertible_v<const ObjectHolder, Object*>);

constexpr StorageMode MODES[] = {ObjectHolder::SM_NO_ACTION, ObjectHolder::SM_DEREF_ONLY,
                                 ObjectHolder::SM_ACQUIRE_ONLY, ObjectHolder::SM_ACQUIRE_AND_DEREF};

bool releases(StorageMode mode)
{
    return mode == 1 || mode == 3;
}

unsigned int acquired(StorageMode mode)
{
    return mode == 2 || mode == 3 ? 1 : 0;
}

class Plain : public virtual Object
{
public:
    explicit Plain(int* destroyed) : destroyed_(destroyed) {}
    ~Plain() noexcept(false) override
    {
        ++*destroyed_;
    }

private:
    int* destroyed_;
};

/** An object whose destructor throws. */
class FailingPlain : public virtual Object
{
public:
    ~FailingPlain() noexcept(false) override
    {
        throw std::runtime_error("destructor failed");
    }
};

/** The counted base follows another base, so that their addresses differ. */
class Other
{
public:
    virtual ~Other() noexcept(false) {}
    int room = 0;
};
class Shifted : public Other, public Counted
{
public:
    using Counted::Counted;
};

/** Calls a function of the test in its destructor. */
class Farewell : public Counted
{
public:
    explicit Farewell(std::function<void()> act) : act_(std::move(act)) {}
    ~Farewell() override
    {
        act_();
    }

private:
    std::function<void()> act_;
};

class PlainFarewell : public virtual Object
{
public:
    explicit PlainFarewell(std::function<void()> act) : act_(std::move(act)) {}
    ~PlainFarewell() noexcept(false) override
    {
        act_();
    }

private:
    std::function<void()> act_;
};

/** Records the calls that change its count. */
class Witness : public Counted
{
public:
    Witness(std::string name, std::vector<std::string>* events) : name_(std::move(name)), events_(events) {}

    void acquireRef() const override
    {
        events_->push_back("acquire " + name_);
        Counted::acquireRef();
    }
    void releaseRef() const override
    {
        events_->push_back("release " + name_);
        Counted::releaseRef();
    }
    bool releaseRef(const std::nothrow_t& nothrow) const override
    {
        events_->push_back("release nothrow " + name_);
        return Counted::releaseRef(nothrow);
    }

private:
    std::string name_;
    std::vector<std::string>* events_;
};

/** An object whose acquireRef() throws. */
class Closed : public Counted
{
public:
    void acquireRef() const override
    {
        throw std::runtime_error("closed");
    }
};

/** Returns the second member of a holder. */
std::uint32_t flagsOf(const ObjectHolder& holder)
{
    std::uint32_t flags = 0;
    std::memcpy(&flags, reinterpret_cast<const char*>(&holder) + sizeof(void*), sizeof(flags));
    return flags;
}

Object* objectOf(ObjectHolder& holder)
{
    return holder;
}

const Object* objectOf(const ObjectHolder& holder)
{
    return holder;
}

TEST(ObjectHolder, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ObjectHolder", ObjectHolder::CLASS_NAME);
}

TEST(ObjectHolder, DefaultIsEmpty)
{
    ObjectHolder holder;
    EXPECT_TRUE(!holder);
    EXPECT_EQ(nullptr, objectOf(holder));
    EXPECT_EQ(nullptr, objectOf(std::as_const(holder)));
    EXPECT_EQ(0U, flagsOf(holder));
    EXPECT_EQ(nullptr, holder.release());
}

TEST(ObjectHolder, FlagsContainTheModeAndTheKindOfObject)
{
    int destroyed = 0;
    for (const StorageMode mode : MODES) {
        EXPECT_EQ(std::uint32_t(mode), flagsOf(ObjectHolder(nullptr, mode)));
        Plain plain(&destroyed);
        ObjectHolder ofPlain(&plain, mode);
        EXPECT_EQ(std::uint32_t(mode), flagsOf(ofPlain));
        EXPECT_EQ(&plain, ofPlain.release());

        Counted counted(false, true);
        const ObjectHolder ofCounted(&counted, mode);
        EXPECT_EQ(std::uint32_t(mode) + 4, flagsOf(ofCounted));
    }
}

TEST(ObjectHolder, AcceptsNullInAnyMode)
{
    for (const StorageMode mode : MODES) {
        ObjectHolder holder(nullptr, mode);
        EXPECT_TRUE(!holder);
        const ObjectHolder copy(holder);
        EXPECT_TRUE(!copy);
        EXPECT_EQ(std::uint32_t(mode), flagsOf(copy));

        int destroyed = 0;
        holder.assign(new Counted(&destroyed), ObjectHolder::SM_ACQUIRE_AND_DEREF);
        EXPECT_FALSE(!holder);
        EXPECT_EQ(&holder, &holder.assign(nullptr, mode));
        EXPECT_EQ(1, destroyed);
        EXPECT_TRUE(!holder);
        EXPECT_EQ(std::uint32_t(mode), flagsOf(holder));
    }
}

TEST(ObjectHolder, DestructorDeletesAPlainObjectOnlyIfTheModeRequiresIt)
{
    for (const StorageMode mode : MODES) {
        int destroyed = 0;
        auto owner = std::make_unique<Plain>(&destroyed);
        {
            ObjectHolder holder(owner.get(), mode);
            EXPECT_EQ(owner.get(), objectOf(holder));
            EXPECT_EQ(owner.get(), objectOf(std::as_const(holder)));
            EXPECT_FALSE(!holder);
        }
        EXPECT_EQ(releases(mode) ? 1 : 0, destroyed) << "mode " << mode;
        if (releases(mode)) {
            owner.release();
        }
    }
}

TEST(ObjectHolder, AssignmentDeletesAPlainObjectInEveryMode)
{
    for (const StorageMode mode : MODES) {
        int destroyed = 0;
        ObjectHolder assigned(new Plain(&destroyed), mode);
        EXPECT_EQ(&assigned, &assigned.assign(nullptr, ObjectHolder::SM_NO_ACTION));
        EXPECT_EQ(1, destroyed) << "mode " << mode;
        ObjectHolder copied(new Plain(&destroyed), mode);
        EXPECT_EQ(&copied, &(copied = ObjectHolder()));
        EXPECT_EQ(2, destroyed) << "mode " << mode;
        EXPECT_TRUE(!copied);
        EXPECT_EQ(0U, flagsOf(copied));
    }
}

TEST(ObjectHolder, AcquiresACountedObjectIfTheModeRequiresIt)
{
    for (const StorageMode mode : MODES) {
        int destroyed = 0;
        RcoRef<Counted> ref(new Counted(&destroyed));
        ref->acquireRef();
        {
            ObjectHolder holder(ref.get(), mode);
            EXPECT_EQ(ref.get(), objectOf(holder));
            EXPECT_EQ(2 + acquired(mode), ref->refCount()) << "mode " << mode;
        }
        EXPECT_EQ(2 + acquired(mode) - (releases(mode) ? 1 : 0), ref->refCount()) << "mode " << mode;
        while (ref->refCount() > 1) {
            ref->releaseRef();
        }
        EXPECT_EQ(0, destroyed);
    }
}

TEST(ObjectHolder, ReleasesACountedObjectIfTheModeRequiresIt)
{
    for (const StorageMode mode : MODES) {
        RcoRef<Counted> ref(new Counted);
        ref->acquireRef();
        ObjectHolder holder(ref.get(), mode);
        holder.assign(nullptr, mode);
        EXPECT_EQ(2 + acquired(mode) - (releases(mode) ? 1 : 0), ref->refCount()) << "mode " << mode;
        EXPECT_TRUE(!holder);
        while (ref->refCount() > 1) {
            ref->releaseRef();
        }
    }
}

TEST(ObjectHolder, OwnsANewCountedObject)
{
    int destroyed = 0;
    {
        const ObjectHolder holder(new Counted(&destroyed), ObjectHolder::SM_ACQUIRE_AND_DEREF);
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
    {
        auto* const counted = new Counted(&destroyed);
        counted->acquireRef();
        const ObjectHolder holder(counted, ObjectHolder::SM_DEREF_ONLY);
        EXPECT_EQ(1U, counted->refCount());
    }
    EXPECT_EQ(2, destroyed);
}

TEST(ObjectHolder, FindsTheCountedBaseAtAnyAddress)
{
    int destroyed = 0;
    auto* const shifted = new Shifted(&destroyed);
    Object* const object = shifted;
    {
        ObjectHolder holder(object, ObjectHolder::SM_ACQUIRE_AND_DEREF);
        EXPECT_EQ(object, objectOf(holder));
        const ObjectHolder copy(holder);
        EXPECT_EQ(object, objectOf(copy));
        EXPECT_EQ(2U, shifted->refCount());
    }
    EXPECT_EQ(1, destroyed);
}

TEST(ObjectHolder, CopiesShareACountedObject)
{
    int destroyed = 0;
    auto* const counted = new Counted(&destroyed);
    {
        ObjectHolder first(counted, ObjectHolder::SM_ACQUIRE_AND_DEREF);
        {
            const ObjectHolder second(first);
            ObjectHolder third;
            third = second;
            EXPECT_EQ(3U, counted->refCount());
            EXPECT_EQ(counted, objectOf(first));
            EXPECT_EQ(counted, objectOf(second));
            EXPECT_EQ(counted, objectOf(third));
            EXPECT_EQ(7U, flagsOf(third));
        }
        EXPECT_EQ(1U, counted->refCount());
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(ObjectHolder, CopiesHaveTheSameMode)
{
    for (const StorageMode mode : MODES) {
        RcoRef<Counted> ref(new Counted);
        for (int spare = 0; spare < 2; ++spare) {
            ref->acquireRef();
        }
        {
            const ObjectHolder source(ref.get(), mode);
            const ObjectHolder copy(source);
            EXPECT_EQ(3 + 2 * acquired(mode), ref->refCount()) << "mode " << mode;
            EXPECT_EQ(std::uint32_t(mode) + 4, flagsOf(copy));
        }
        EXPECT_EQ(3 + 2 * acquired(mode) - (releases(mode) ? 2 : 0), ref->refCount()) << "mode " << mode;
        while (ref->refCount() > 1) {
            ref->releaseRef();
        }
    }
}

TEST(ObjectHolder, CopyingAPlainObjectEmptiesTheSource)
{
    int destroyed = 0;
    auto* const plain = new Plain(&destroyed);
    {
        const ObjectHolder source(plain, ObjectHolder::SM_DEREF_ONLY);
        {
            ObjectHolder copy(source);
            EXPECT_TRUE(!source);
            EXPECT_EQ(1U, flagsOf(source));
            EXPECT_EQ(plain, objectOf(copy));

            ObjectHolder last;
            last = copy;
            EXPECT_TRUE(!copy);
            EXPECT_EQ(plain, objectOf(last));
            EXPECT_EQ(1U, flagsOf(last));
            EXPECT_EQ(0, destroyed);
        }
        EXPECT_EQ(1, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(ObjectHolder, SurvivesReallocationOfAVector)
{
    int destroyed = 0;
    {
        std::vector<ObjectHolder> holders;
        for (int i = 0; i < 20; ++i) {
            holders.emplace_back(new Plain(&destroyed), ObjectHolder::SM_DEREF_ONLY);
            holders.emplace_back(new Counted(&destroyed), ObjectHolder::SM_ACQUIRE_AND_DEREF);
        }
        EXPECT_EQ(0, destroyed);
        for (const ObjectHolder& holder : holders) {
            EXPECT_FALSE(!holder);
        }
    }
    EXPECT_EQ(40, destroyed);
}

TEST(ObjectHolder, SelfAssignmentChangesNothing)
{
    int destroyed = 0;
    for (const StorageMode mode : {ObjectHolder::SM_DEREF_ONLY, ObjectHolder::SM_ACQUIRE_AND_DEREF}) {
        auto* const plain = new Plain(&destroyed);
        ObjectHolder ofPlain(plain, mode);
        const ObjectHolder& samePlain = ofPlain;
        EXPECT_EQ(&ofPlain, &(ofPlain = samePlain));
        EXPECT_EQ(plain, objectOf(ofPlain));
        EXPECT_EQ(std::uint32_t(mode), flagsOf(ofPlain));
    }
    EXPECT_EQ(2, destroyed);

    RcoRef<Counted> ref(new Counted);
    ObjectHolder ofCounted(ref.get(), ObjectHolder::SM_ACQUIRE_AND_DEREF);
    const ObjectHolder& sameCounted = ofCounted;
    EXPECT_EQ(&ofCounted, &(ofCounted = sameCounted));
    EXPECT_EQ(2U, ref->refCount());
    EXPECT_EQ(ref.get(), objectOf(ofCounted));
    EXPECT_EQ(7U, flagsOf(ofCounted));
}

TEST(ObjectHolder, ReleasesTheOldObjectBeforeItStoresTheNewOne)
{
    std::vector<std::string> events;
    const RcoRef<Counted> one(new Witness("one", &events));
    const RcoRef<Counted> two(new Witness("two", &events));
    ObjectHolder holder(const_cast<Counted*>(one.get()), ObjectHolder::SM_ACQUIRE_AND_DEREF);
    const ObjectHolder source(const_cast<Counted*>(two.get()), ObjectHolder::SM_ACQUIRE_AND_DEREF);

    events.clear();
    holder = source;
    EXPECT_EQ((std::vector<std::string>{"release one", "acquire two"}), events);
    events.clear();
    holder.assign(const_cast<Counted*>(one.get()), ObjectHolder::SM_ACQUIRE_ONLY);
    EXPECT_EQ((std::vector<std::string>{"release two", "acquire one"}), events);
    events.clear();
    holder = source;
    EXPECT_EQ((std::vector<std::string>{"acquire two"}), events);
    one->releaseRef();
}

TEST(ObjectHolder, HoldsPlainAndCountedObjectsAlternately)
{
    int plains = 0;
    int counteds = 0;
    {
        ObjectHolder holder(new Plain(&plains), ObjectHolder::SM_DEREF_ONLY);
        const ObjectHolder counted(new Counted(&counteds), ObjectHolder::SM_ACQUIRE_AND_DEREF);
        holder = counted;
        EXPECT_EQ(1, plains);
        EXPECT_EQ(7U, flagsOf(holder));
        EXPECT_TRUE(holder == counted);
        holder.assign(new Plain(&plains), ObjectHolder::SM_DEREF_ONLY);
        EXPECT_EQ(1U, flagsOf(holder));
        EXPECT_EQ(0, counteds);
    }
    EXPECT_EQ(2, plains);
    EXPECT_EQ(1, counteds);
}

TEST(ObjectHolder, ReleaseTransfersTheObjectWithItsReference)
{
    int destroyed = 0;
    for (const StorageMode mode : MODES) {
        const std::unique_ptr<Plain> plain(new Plain(&destroyed));
        ObjectHolder ofPlain(plain.get(), mode);
        EXPECT_EQ(plain.get(), ofPlain.release());
        EXPECT_TRUE(!ofPlain);
        EXPECT_EQ(nullptr, ofPlain.release());
        ofPlain.assign(nullptr, mode);
        EXPECT_EQ(0, destroyed);

        auto* const counted = new Counted(&destroyed);
        counted->acquireRef();
        ObjectHolder ofCounted(counted, mode);
        EXPECT_EQ(counted, ofCounted.release());
        EXPECT_EQ(1 + acquired(mode), counted->refCount());
        EXPECT_TRUE(!ofCounted);
        EXPECT_EQ(nullptr, objectOf(ofCounted));
        ofCounted = ObjectHolder();
        EXPECT_EQ(1 + acquired(mode), counted->refCount());
        while (counted->refCount() > 1) {
            counted->releaseRef();
        }
        counted->releaseRef();
        EXPECT_EQ(1, destroyed);
        destroyed = -1;
    }
}

TEST(ObjectHolder, ComparesTheAddressesOfTheObjects)
{
    Counted objects[2] = {{false, true}, {false, true}};
    const ObjectHolder none;
    const ObjectHolder low(&objects[0], ObjectHolder::SM_NO_ACTION);
    const ObjectHolder lowToo(&objects[0], ObjectHolder::SM_ACQUIRE_AND_DEREF);
    const ObjectHolder high(&objects[1], ObjectHolder::SM_NO_ACTION);
    EXPECT_TRUE(low == lowToo);
    EXPECT_FALSE(low != lowToo);
    EXPECT_FALSE(low < lowToo);
    EXPECT_FALSE(low == high);
    EXPECT_TRUE(low != high);
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_TRUE(none < low);
    EXPECT_TRUE(none == ObjectHolder(nullptr, ObjectHolder::SM_DEREF_ONLY));
    EXPECT_TRUE(none != low);
}

TEST(ObjectHolder, ConvertsToATruthValue)
{
    Counted counted(false, true);
    ObjectHolder holder(&counted, ObjectHolder::SM_NO_ACTION);
    EXPECT_TRUE(holder ? true : false);
    EXPECT_TRUE(std::as_const(holder) ? true : false);
    holder.release();
    EXPECT_FALSE(holder ? true : false);
}

// Failures.

TEST(ObjectHolder, KeepsTheObjectIfItsReleaseThrows)
{
    int destroyed = 0;
    auto* const throwing = new Stubborn(&destroyed);
    {
        RcoRef<Counted> ref(new Counted);
        ObjectHolder holder(throwing, ObjectHolder::SM_ACQUIRE_AND_DEREF);
        const ObjectHolder source(ref.get(), ObjectHolder::SM_ACQUIRE_AND_DEREF);
        throwing->throwsOnRelease = true;
        EXPECT_THROW(holder = source, std::runtime_error);
        EXPECT_EQ(throwing, objectOf(holder));
        EXPECT_EQ(7U, flagsOf(holder));
        EXPECT_EQ(2U, ref->refCount());
        EXPECT_THROW(holder.assign(nullptr, ObjectHolder::SM_NO_ACTION), std::runtime_error);
        EXPECT_EQ(throwing, objectOf(holder));
        EXPECT_EQ(7U, flagsOf(holder));
        EXPECT_EQ(1U, throwing->refCount());
        throwing->throwsOnRelease = false;
    }
    EXPECT_EQ(1, destroyed);
}

TEST(ObjectHolder, ReleaseWithoutAReferenceThrows)
{
    Counted counted;
    ObjectHolder holder(&counted, ObjectHolder::SM_DEREF_ONLY);
    try {
        holder.assign(nullptr, ObjectHolder::SM_NO_ACTION);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(-1, error.error());
        EXPECT_STREQ("Reference count < 0", error.what());
    }
    EXPECT_EQ(&counted, holder.release());
}

TEST(ObjectHolder, IsEmptyIfAcquiringThrows)
{
    int destroyed = 0;
    Closed closed;
    EXPECT_THROW(ObjectHolder(&closed, ObjectHolder::SM_ACQUIRE_AND_DEREF), std::runtime_error);
    ObjectHolder holder(new Plain(&destroyed), ObjectHolder::SM_DEREF_ONLY);
    EXPECT_THROW(holder.assign(&closed, ObjectHolder::SM_ACQUIRE_AND_DEREF), std::runtime_error);
    EXPECT_EQ(1, destroyed);
    EXPECT_TRUE(!holder);
    EXPECT_EQ(nullptr, objectOf(holder));
    EXPECT_NO_THROW(holder.assign(&closed, ObjectHolder::SM_NO_ACTION));
    EXPECT_EQ(&closed, holder.release());
}

TEST(ObjectHolder, IsEmptyAfterADestructorThrew)
{
    ObjectHolder holder(new FailingPlain, ObjectHolder::SM_DEREF_ONLY);
    EXPECT_THROW(holder.assign(nullptr, ObjectHolder::SM_DEREF_ONLY), std::runtime_error);
    EXPECT_TRUE(!holder);
}

TEST(ObjectHolder, IsEmptyDuringTheDestructorOfItsObject)
{
    ObjectHolder holder;
    int looks = 0;
    const auto look = [&holder, &looks] {
        EXPECT_TRUE(!holder);
        EXPECT_EQ(nullptr, holder.release());
        holder.assign(nullptr, ObjectHolder::SM_DEREF_ONLY);
        ++looks;
    };
    holder.assign(new Farewell(look), ObjectHolder::SM_ACQUIRE_AND_DEREF);
    holder = ObjectHolder();
    EXPECT_EQ(1, looks);
    holder.assign(new PlainFarewell(look), ObjectHolder::SM_DEREF_ONLY);
    holder = ObjectHolder();
    EXPECT_EQ(2, looks);
}

TEST(ObjectHolderDeathTest, ReleaseThatThrowsInTheDestructorTerminates)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Counted counted;
            const ObjectHolder holder(&counted, ObjectHolder::SM_DEREF_ONLY);
        },
        testing::KilledBySignal(SIGABRT), "");
}

}
