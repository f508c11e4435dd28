#include <dalnim/type/Cloneable.hpp>

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/type/Context.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::type::Cloneable;

static_assert(std::is_abstract_v<Cloneable>);
static_assert(std::has_virtual_destructor_v<Cloneable>);
static_assert(sizeof(Cloneable) == sizeof(void*), "it has no fields");

class Sheep : public Cloneable
{
public:
    explicit Sheep(int* live) : live_(live)
    {
        ++*live_;
    }
    Sheep(const Sheep& other) : Cloneable(other), name(other.name), live_(other.live_)
    {
        ++*live_;
    }
    Sheep& operator=(const Sheep&) = default;
    ~Sheep() override
    {
        --*live_;
    }

    Cloneable* clone(bool deep) const override
    {
        auto copy = std::make_unique<Sheep>(*this);
        copy->wasDeep = deep;
        return copy.release();
    }

    int name = 0;
    bool wasDeep = false;

private:
    int* live_;
};

/** Content of an application, without a destructor of its own. */
struct Leaf : com::kor::dal::nim::mem::RefCntObject, Cloneable
{
    Cloneable* clone(bool) const override
    {
        return std::make_unique<Leaf>(*this).release();
    }
};

struct Branch : Leaf
{
    std::string name;
};

/** A context that is stored in another one. */
struct Tree : com::kor::dal::nim::type::Context, Cloneable
{
    com::kor::dal::nim::UInt32_t key() const override
    {
        return 0x0103;
    }
    Cloneable* clone(bool) const override
    {
        return std::make_unique<Tree>(*this).release();
    }
};

/** A cloneable exception. */
class Failure : public std::runtime_error, public Cloneable
{
public:
    Failure() : std::runtime_error("failed") {}
    ~Failure() noexcept override = default;

    Cloneable* clone(bool) const override
    {
        return std::make_unique<Failure>(*this).release();
    }
};

static_assert(std::is_nothrow_destructible_v<Failure>);

TEST(Cloneable, CountedContentNeedsNoDestructor)
{
    using com::kor::dal::nim::mem::RefCntObject;
    using com::kor::dal::nim::mem::RefCntObjectRef;
    for (const RefCntObjectRef& source :
         {RefCntObjectRef(new Leaf), RefCntObjectRef(new Branch), RefCntObjectRef(new Tree)}) {
        Cloneable* const clone = dynamic_cast<const Cloneable&>(*source).clone(false);
        const RefCntObjectRef copy(dynamic_cast<RefCntObject*>(clone));
        ASSERT_TRUE(copy);
        EXPECT_EQ(1U, copy->refCount());
        EXPECT_NE(source, copy);
    }
}

TEST(Cloneable, CloneHasTheSlotBeforeTheDestructor)
{
    EXPECT_EQ(0, virtualSlot(&Cloneable::clone));
}

TEST(Cloneable, IsClonedAndDestroyedThroughTheBase)
{
    int live = 0;
    {
        Sheep sheep(&live);
        sheep.name = 7;
        const Cloneable& cloneable = sheep;
        for (const bool deep : {false, true}) {
            const std::unique_ptr<Cloneable> clone(cloneable.clone(deep));
            EXPECT_EQ(2, live);
            const auto& copy = dynamic_cast<const Sheep&>(*clone);
            EXPECT_NE(&sheep, &copy);
            EXPECT_EQ(7, copy.name);
            EXPECT_EQ(deep, copy.wasDeep);
        }
        EXPECT_EQ(1, live);

        Sheep other(&live);
        other = sheep;
        EXPECT_EQ(7, other.name);
    }
    EXPECT_EQ(0, live);
}

}
