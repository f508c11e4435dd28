#include <qv/rtlapi/RX_fmt.hpp>

#include <gtest/gtest.h>

namespace {

TEST(RXFmt, ReturnsTheDigits)
{
    EXPECT_EQ(RX_fmt(0U, 0, 314159265, 314159265), "0");
    EXPECT_EQ(RX_fmt(17U, 0, 314159265, 314159265), "17");
    EXPECT_EQ(RX_fmt(4294967295U, 0, 314159265, 314159265), "4294967295");
    EXPECT_EQ(RX_fmt(0UL, 0, 314159265, 314159265), "0");
    EXPECT_EQ(RX_fmt(18446744073709551615UL, 0, 314159265, 314159265), "18446744073709551615");
}

TEST(RXFmt, OptionsHaveDefaults)
{
    EXPECT_EQ(RX_FMT_DEFAULT, 314159265U);
    EXPECT_EQ(RX_fmt(42U), "42");
    EXPECT_EQ(RX_fmt(42UL), "42");
}

TEST(RXFmt, OptionsHaveNoEffect)
{
    EXPECT_EQ(RX_fmt(42U, 16, 10, 5), "42");
}

}
