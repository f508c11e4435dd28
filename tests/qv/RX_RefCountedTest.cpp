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
    explicit Counted(bool& isGone) : _isGone(isGone) {}
    ~Counted() noexcept(false) override
    {
        _isGone = true;
    }

private:
    bool& _isGone;
};

TEST(RXRefCounted, StartsWithTheReferenceOfItsCreator)
{
    bool isGone = false;
    Counted* const counted = new Counted(isGone);
    counted->detach();
    EXPECT_TRUE(isGone);
}

TEST(RXRefCounted, GoesWithTheLastReference)
{
    bool isGone = false;
    Counted* const counted = new Counted(isGone);
    counted->attach();
    counted->attach();
    counted->detach();
    counted->detach();
    EXPECT_FALSE(isGone);
    testing::internal::CaptureStderr();
    counted->detach();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(isGone);
}

TEST(RXRefCounted, ReportsAnObjectThatIsDestroyedWithReferences)
{
    bool isGone = false;
    testing::internal::CaptureStderr();
    {
        const Counted onTheStack(isGone);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), REPORT);
    EXPECT_TRUE(isGone);
}

TEST(RXRefCounted, ReportsWithoutAnException)
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

TEST(RXRefCounted, FailsInItsConstructorWithoutAReport)
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

TEST(RXRefCounted, IsCountedByManyThreads)
{
    bool isGone = false;
    Counted* const counted = new Counted(isGone);
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
    EXPECT_TRUE(isGone);
}

TEST(RXLockable, IsCountedAndCanBeLocked)
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

TEST(RXMonitor, GoesByDetach)
{
    Monitor* const monitor = new Monitor;
    monitor->detach();
}

}
