#include <qv/rtlapi/RX_AutoPtr_U.hpp>

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>

namespace {

struct Counted
{
    Counted()
    {
        ++alive;
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted()
    {
        --alive;
    }

    int value = 7;

    static int alive;
};

int Counted::alive = 0;

typedef RX_AutoPtr_U<Counted> Pointer;

TEST(RXAutoPtr, DeletesItsObject)
{
    {
        const Pointer pointer(new Counted);
        EXPECT_EQ(Counted::alive, 1);
        EXPECT_EQ((*pointer).value, 7);
        EXPECT_EQ(pointer->value, 7);
        EXPECT_EQ(&*pointer, pointer.get());
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST(RXAutoPtr, MayBeNull)
{
    const Pointer pointer;
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(Pointer(nullptr).get(), nullptr);
}

TEST(RXAutoPtr, ReleaseTransfersTheOwnership)
{
    Counted* object = nullptr;
    {
        Pointer pointer(new Counted);
        object = pointer.release();
        EXPECT_EQ(pointer.get(), object);
    }
    EXPECT_EQ(Counted::alive, 1);
    delete object;
}

TEST(RXAutoPtr, CopyTransfersTheOwnership)
{
    const Pointer first(new Counted);
    {
        const Pointer second(first);
        EXPECT_EQ(second.get(), first.get());
        EXPECT_EQ(Counted::alive, 1);
    }
    EXPECT_EQ(Counted::alive, 0);
    const Pointer third(first);
}

TEST(RXAutoPtr, AssignmentDeletesItsObjectAndTransfersTheOwnership)
{
    Pointer first(new Counted);
    Counted* const object = first.get();
    {
        Pointer second(new Counted);
        EXPECT_EQ(Counted::alive, 2);
        second = first;
        EXPECT_EQ(Counted::alive, 1);
        EXPECT_EQ(second.get(), object);
        // And back: `first` still points to the object.
        first = second;
    }
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(first.get(), object);
    first = Pointer();
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(first.get(), nullptr);
}

TEST(RXAutoPtr, AssignmentFromANonOwnerOfTheSameObjectKeepsTheOwnership)
{
    Pointer first(new Counted);
    Pointer second(first);
    second = first;
    EXPECT_EQ(Counted::alive, 1);
    Pointer& self = second;
    second = self;
    EXPECT_EQ(Counted::alive, 1);
}

TEST(RXAutoPtr, OwnsCharactersAndStreams)
{
    const RX_AutoPtr_U<char> character(new char('x'));
    EXPECT_EQ(*character, 'x');
    const RX_AutoPtr_U<std::ostream> stream(new std::ostringstream);
    *stream << 1;
    EXPECT_TRUE(stream->good());
}

}
