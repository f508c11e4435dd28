#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Lockable.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_Monitor.hpp>

namespace {

static_assert(!std::is_copy_constructible_v<RX_RefCounted_PRIVATE_>);
static_assert(std::has_virtual_destructor_v<RX_RefCounted_PRIVATE_>);
static_assert(std::is_base_of_v<RX_RefCounted_PRIVATE_, RX_Lockable>);
static_assert(std::is_base_of_v<RX_Mutex, RX_Lockable>);
static_assert(std::is_base_of_v<RX_Lockable, RX_Monitor> && !std::is_destructible_v<RX_Monitor>);

constexpr char REPORT[] = "qv: a reference-counted object is destroyed while there are references to it\n";

class Counted : public RX_RefCounted_PRIVATE_
{
public:
    explicit Counted(bool& isDestroyed) : _isDestroyed(isDestroyed) {}
    ~Counted() noexcept(false) override
    {
        _isDestroyed = true;
    }

private:
    bool& _isDestroyed;
};

TEST(RXRefCounted, StartsWithTheReferenceOfItsCreator)
{
    bool isDestroyed = false;
    Counted* const counted = new Counted(isDestroyed);
    counted->detach();
    EXPECT_TRUE(isDestroyed);
}

TEST(RXRefCounted, IsDeletedByTheLastDetach)
{
    bool isDestroyed = false;
    Counted* const counted = new Counted(isDestroyed);
    counted->attach();
    counted->attach();
    counted->detach();
    counted->detach();
    EXPECT_FALSE(isDestroyed);
    testing::internal::CaptureStderr();
    counted->detach();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(isDestroyed);
}

TEST(RXRefCounted, DestructionWithReferencesIsReported)
{
    bool isDestroyed = false;
    testing::internal::CaptureStderr();
    {
        const Counted onTheStack(isDestroyed);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), REPORT);
    EXPECT_TRUE(isDestroyed);
}

TEST(RXRefCounted, BadLockableDestructReportsWithoutThrowing)
{
    static_assert(noexcept(RX_BadLockableDestruct()));
    testing::internal::CaptureStderr();
    RX_BadLockableDestruct();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), REPORT);
}

class Failing : public RX_RefCounted_PRIVATE_
{
public:
    Failing()
    {
        throwFromConstructor(RX_ExWarning(16, "busy"));
    }
};

TEST(RXRefCounted, ConstructorThatThrowsIsNotReported)
{
    testing::internal::CaptureStderr();
    try {
        new Failing;
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(RX_ExWarning));
        EXPECT_EQ(exception.getArgument(0), "busy");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(RXRefCounted, CountsReferencesOfManyThreads)
{
    bool isDestroyed = false;
    Counted* const counted = new Counted(isDestroyed);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        counted->attach();
        threads.emplace_back([counted] {
            for (int k = 0; k < 2000; ++k) {
                counted->attach();
                counted->detach();
            }
            counted->detach();
        });
    }
    counted->detach();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(isDestroyed);
}

TEST(RXLockable, IsReferenceCountedAndLockable)
{
    RX_Lockable* const lockable = new RX_Lockable;
    lockable->attach();
    {
        const RX_Locked_ locked(lockable);
        EXPECT_EQ(lockable->tryLock(), 0);
    }
    {
        const RX_Locked_ locked(*lockable);
        EXPECT_EQ(lockable->tryLock(), 0);
    }
    lockable->detach();
    lockable->detach();
}

class Monitor : public RX_Monitor
{};

TEST(RXMonitor, IsDeletedByDetach)
{
    Monitor* const monitor = new Monitor;
    monitor->detach();
}

}
