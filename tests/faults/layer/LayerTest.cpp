// The layer itself: calls of libraries reach it, and are forwarded without a fault.

#include "Fault.hpp"
#include "Walk.hpp"

#include <dalnim/String.hpp>
#include <dalnim/io/FsOps.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using namespace faults;
using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using com::kor::dal::nim::sys::system_error;

TEST(FaultLayer, CountsCallsFromItsConstruction)
{
    const Fault fault(Call::GETCWD, ENOENT, 2, 2);
    char buffer[4096];
    EXPECT_NE(nullptr, ::getcwd(buffer, sizeof buffer));
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(nullptr, ::getcwd(buffer, sizeof buffer));
        EXPECT_EQ(ENOENT, errno);
    }
    EXPECT_NE(nullptr, ::getcwd(buffer, sizeof buffer));
    EXPECT_EQ(4u, fault.calls());
    EXPECT_EQ(2u, fault.failed());
}

TEST(FaultLayer, IsDisarmedAtTheEndOfItsScope)
{
    char buffer[4096];
    {
        Fault fault(Call::GETCWD, ENOENT);
        EXPECT_EQ(nullptr, ::getcwd(buffer, sizeof buffer));
        fault.disarm();
        EXPECT_NE(nullptr, ::getcwd(buffer, sizeof buffer));
    }
    {
        const Fault fault(Call::GETCWD, ENOENT);
        EXPECT_EQ(nullptr, ::getcwd(buffer, sizeof buffer));
    }
    EXPECT_NE(nullptr, ::getcwd(buffer, sizeof buffer));
}

TEST(FaultLayer, AffectsOneThreadOnly)
{
    const Fault fault(Call::GETCWD, ENOENT);
    std::thread([] {
        char buffer[4096];
        EXPECT_NE(nullptr, ::getcwd(buffer, sizeof buffer));
    }).join();
    EXPECT_EQ(0u, fault.calls());
}

TEST(FaultLayer, AffectsCallsOfTheLibrary)
{
    Fault fault(Call::REALPATH, EIO);
    int number = 0;
    try {
        com::kor::dal::nim::io::fullPath("/");
    } catch (const std::invalid_argument&) {
    }
    try {
        com::kor::dal::nim::io::fullPath("/tmp");
    } catch (const system_error& error) {
        number = error.error();
    }
    fault.disarm();
    EXPECT_EQ(EIO, number);
}

/** Allocations of the library are counted, and freed by the matching operator delete. */
TEST(FaultLayer, AffectsAllocationsOfTheLibrary)
{
    const String key(100, 'k');
    std::unique_ptr<Properties> table(new Properties);
    Fault fault(Call::NEW, ENOMEM, 1, 1);
    const Outcome outcome = outcomeUnder(fault, [&] { table->setProperty(key, key); });
    EXPECT_EQ(Outcome::NO_MEMORY, outcome.kind);
    EXPECT_EQ(1u, outcome.faults);
    table->setProperty(key, key);
    EXPECT_EQ(1u, table->size());
}

struct alignas(64) Wide
{
    char bytes[64];
};

TEST(FaultLayer, AffectsEveryFormOfNew)
{
    Fault fault(Call::NEW, ENOMEM, 1);
    int thrown = 0;
    const auto expectThrow = [&thrown](auto allocate) {
        try {
            allocate();
        } catch (const std::bad_alloc&) {
            ++thrown;
        }
    };
    expectThrow([] { ::operator delete(::operator new(1)); });
    expectThrow([] { ::operator delete[](::operator new[](1)); });
    expectThrow([] { ::operator delete(::operator new(64, std::align_val_t(64)), std::align_val_t(64)); });
    expectThrow(
        [] { ::operator delete[](::operator new[](64, std::align_val_t(64)), std::align_val_t(64)); });
    void* const plain = ::operator new(1, std::nothrow);
    void* const array = ::operator new[](1, std::nothrow);
    void* const wide = ::operator new(64, std::align_val_t(64), std::nothrow);
    void* const wides = ::operator new[](64, std::align_val_t(64), std::nothrow);
    fault.disarm();
    EXPECT_EQ(4, thrown);
    EXPECT_EQ(nullptr, plain);
    EXPECT_EQ(nullptr, array);
    EXPECT_EQ(nullptr, wide);
    EXPECT_EQ(nullptr, wides);
    EXPECT_EQ(8u, fault.failed());
    EXPECT_NE(nullptr, std::make_unique<Wide>());
    EXPECT_NE(nullptr, std::make_unique<Wide[]>(3));
}

#if !defined DALNIM_SANITIZED

TEST(FaultLayer, DoesNotCountMallocInsideNew)
{
    Fault fault(Call::MALLOC, ENOMEM, 1);
    const std::unique_ptr<int> made(new int(1));
    void* const refused = std::malloc(100);
    fault.disarm();
    EXPECT_EQ(nullptr, refused);
    EXPECT_EQ(1u, fault.calls());
    EXPECT_EQ(1, *made);
}

#endif

/** Two allocations; the state shows how many have succeeded. */
struct Steps
{
    std::unique_ptr<int> first;
    std::unique_ptr<int> second;
};

TEST(FaultLayer, WalkFailsEachAllocationOnce)
{
    std::vector<int> done;
    const unsigned int allocations = walkAllocations([] { return Steps(); },
                                                     [](Steps& steps) {
                                                         std::unique_ptr<int> first(new int(1));
                                                         steps.second.reset(new int(2));
                                                         steps.first = std::move(first);
                                                     },
                                                     [&done](Steps& steps, bool isDone) {
                                                         EXPECT_EQ(isDone, steps.first != nullptr);
                                                         done.push_back(isDone);
                                                     });
    EXPECT_EQ(2u, allocations);
    EXPECT_EQ((std::vector<int>{0, 1, 0, 1, 1, 0, 1, 0, 1, 1}), done);
}

TEST(FaultLayer, WalkContinuesAfterAFaultThatWasHandled)
{
    const unsigned int allocations =
        walkAllocations([] { return 0; },
                        [](int& value) {
                            void* const spare = ::operator new(1, std::nothrow);
                            ::operator delete(spare);
                            value = 1;
                        },
                        [](int value, bool done) { EXPECT_EQ(done, value == 1); });
    EXPECT_EQ(1u, allocations);
}

}
