#include <dalnim/type/Object.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

namespace {

using com::kor::dal::nim::type::Object;

static_assert(std::is_polymorphic_v<Object>);
static_assert(std::has_virtual_destructor_v<Object>);
static_assert(std::is_destructible_v<Object>, "anyone may delete one by its root");
static_assert(!std::is_nothrow_destructible_v<Object>, "an object may fail while it goes");
static_assert(!std::is_default_constructible_v<Object>, "only subclasses make one");
static_assert(!std::is_copy_constructible_v<Object>);
static_assert(!std::is_copy_assignable_v<Object>);
static_assert(sizeof(Object) == sizeof(void*), "it has no fields");

class Left : public virtual Object
{
public:
    explicit Left(int* destroyed = nullptr) : destroyed_(destroyed) {}
    ~Left() override
    {
        if (destroyed_ != nullptr) {
            ++*destroyed_;
        }
    }

private:
    int* destroyed_;
};

class Right : public virtual Object
{};

class Both : public Left, public Right
{
public:
    using Left::Left;
};

static_assert(std::is_convertible_v<Both*, Object*>, "there is one Object, however many roots");
static_assert(std::is_copy_constructible_v<Both>);
static_assert(std::is_copy_assignable_v<Both>);

TEST(Object, SeveralBasesShareOneObject)
{
    Both both;
    EXPECT_EQ(static_cast<Object*>(static_cast<Left*>(&both)),
              static_cast<Object*>(static_cast<Right*>(&both)));
}

TEST(Object, DestroysTheWholeObject)
{
    int destroyed = 0;
    std::unique_ptr<Object> object = std::make_unique<Both>(&destroyed);
    EXPECT_NE(nullptr, dynamic_cast<Right*>(object.get()));
    object.reset();
    EXPECT_EQ(1, destroyed);
}

class Failing : public virtual Object
{
public:
    ~Failing() noexcept(false) override
    {
        throw std::runtime_error("destructor failed");
    }
};

TEST(Object, ExceptionOfTheDestructorPropagates)
{
    Object* const object = new Failing;
    try {
        delete object;
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("destructor failed", failure.what());
    }
}

}
