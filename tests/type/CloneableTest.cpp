#include <dalnim/type/Cloneable.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::type::Cloneable;

static_assert(std::is_abstract_v<Cloneable>);
static_assert(std::has_virtual_destructor_v<Cloneable>);
static_assert(std::is_nothrow_destructible_v<Cloneable>);
static_assert(sizeof(Cloneable) == sizeof(void*), "it has no fields");

class Sheep : public Cloneable
{
public:
    explicit Sheep(int* living) : living_(living)
    {
        ++*living_;
    }
    Sheep(const Sheep& other) : Cloneable(other), name(other.name), living_(other.living_)
    {
        ++*living_;
    }
    Sheep& operator=(const Sheep&) = default;
    ~Sheep() override
    {
        --*living_;
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
    int* living_;
};

TEST(Cloneable, ComesAheadOfItsDestructor)
{
    EXPECT_EQ(0, virtualSlot(&Cloneable::clone));
}

TEST(Cloneable, IsCopiedAndDestroyedByItsBase)
{
    int living = 0;
    {
        Sheep sheep(&living);
        sheep.name = 7;
        const Cloneable& cloneable = sheep;
        for (const bool deep : {false, true}) {
            const std::unique_ptr<Cloneable> clone(cloneable.clone(deep));
            EXPECT_EQ(2, living);
            const auto& copy = dynamic_cast<const Sheep&>(*clone);
            EXPECT_NE(&sheep, &copy);
            EXPECT_EQ(7, copy.name);
            EXPECT_EQ(deep, copy.wasDeep);
        }
        EXPECT_EQ(1, living);

        Sheep other(&living);
        other = sheep;
        EXPECT_EQ(7, other.name);
    }
    EXPECT_EQ(0, living);
}

}
