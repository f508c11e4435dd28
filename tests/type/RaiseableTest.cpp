#include <dalnim/type/Raiseable.hpp>

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <type_traits>

#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::type::Raiseable;

static_assert(std::is_abstract_v<Raiseable>);
static_assert(std::has_virtual_destructor_v<Raiseable>);
static_assert(std::is_nothrow_destructible_v<Raiseable>);
static_assert(sizeof(Raiseable) == sizeof(void*), "it has no fields");

class Alarm : public std::exception, public Raiseable
{
public:
    explicit Alarm(int alarmLevel) : level(alarmLevel) {}

    [[noreturn]] void raise() const override
    {
        throw *this;
    }

    int level;
};

TEST(Raiseable, RaiseHasTheSlotBeforeTheDestructor)
{
    EXPECT_EQ(0, virtualSlot(&Raiseable::raise));
}

TEST(Raiseable, RaiseThrowsTheDynamicType)
{
    const std::unique_ptr<std::exception> stored = std::make_unique<Alarm>(3);
    try {
        dynamic_cast<const Raiseable&>(*stored).raise();
    } catch (const Alarm& alarm) {
        EXPECT_EQ(3, alarm.level);
        EXPECT_NE(stored.get(), &alarm);
    }
    EXPECT_EQ(3, dynamic_cast<const Alarm&>(*stored).level);
    EXPECT_THROW(dynamic_cast<const Raiseable&>(*stored).raise(), Alarm);
}

TEST(Raiseable, IsCopiedAndAssigned)
{
    Alarm alarm(1);
    const Alarm other(2);
    alarm = other;
    EXPECT_EQ(2, alarm.level);
}

}
