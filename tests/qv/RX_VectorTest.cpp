#include <qv/rtlapi/RX_Vector_U.hpp>

#include <gtest/gtest.h>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_String.hpp>

namespace {

template <typename Action>
int codeOf(Action action)
{
    try {
        action();
    } catch (const RX_ExError& error) {
        return error.getCode();
    }
    return 0;
}

TEST(RX_Vector, IsInitiallyEmptyWithAnyCapacity)
{
    EXPECT_EQ(RX_Vector_U<int>(100).size(), 0U);
    EXPECT_EQ(RX_Vector_U<int>().size(), 0U);
}

TEST(RX_Vector, AddsAndRemovesAtTheEnd)
{
    RX_Vector_U<RX_String> vector(1);
    vector.addhi("a");
    vector.addhi("b");
    vector.addhi("c");
    ASSERT_EQ(vector.size(), 3U);
    EXPECT_EQ(vector[0], "a");
    EXPECT_EQ(vector[2], "c");
    EXPECT_EQ(vector.remhi(), "c");
    EXPECT_EQ(vector.remhi(), "b");
    EXPECT_EQ(vector.size(), 1U);
    EXPECT_EQ(vector[0], "a");
}

TEST(RX_Vector, CanAddItsOwnElement)
{
    RX_Vector_U<RX_String> vector(1);
    vector.addhi("first");
    for (int i = 0; i < 1000; ++i) {
        vector.addhi(vector[0]);
    }
    EXPECT_EQ(vector.size(), 1001U);
    EXPECT_EQ(vector[1000], "first");
}

TEST(RX_Vector, ElementsCanBeAssigned)
{
    RX_Vector_U<int> vector(0);
    vector.addhi(1);
    vector[0] = 7;
    const RX_Vector_U<int> copy = vector;
    vector[0] = 8;
    EXPECT_EQ(copy[0], 7);
}

TEST(RX_Vector, ErasesAtTheEnd)
{
    RX_Vector_U<int> vector;
    for (int i = 0; i < 5; ++i) {
        vector.addhi(i);
    }
    vector.erasehi();
    EXPECT_EQ(vector.size(), 4U);
    vector.erasehi(3);
    ASSERT_EQ(vector.size(), 1U);
    EXPECT_EQ(vector[0], 0);
    vector.erasehi(0);
    EXPECT_EQ(vector.size(), 1U);
}

TEST(RX_Vector, IndexOutOfRangeThrows51458)
{
    RX_Vector_U<int> vector(10);
    EXPECT_EQ(codeOf([&] { vector[0] = 1; }), 51458);
    vector.addhi(1);
    EXPECT_EQ(codeOf([&] { vector[0] = 1; }), 0);
    EXPECT_EQ(codeOf([&] { vector[1] = 1; }), 51458);
    const RX_Vector_U<int>& constant = vector;
    EXPECT_EQ(codeOf([&] { static_cast<void>(constant[1]); }), 51458);
    EXPECT_EQ(codeOf([&] { static_cast<void>(constant[static_cast<std::size_t>(-1)]); }), 51458);
}

TEST(RX_Vector, RemovingTooManyThrows51488AndRemovesNone)
{
    RX_Vector_U<int> vector;
    EXPECT_EQ(codeOf([&] { vector.remhi(); }), 51488);
    EXPECT_EQ(codeOf([&] { vector.erasehi(); }), 51488);
    vector.addhi(3);
    vector.addhi(4);
    EXPECT_EQ(codeOf([&] { vector.erasehi(3); }), 51488);
    EXPECT_EQ(vector.size(), 2U);
}

}
