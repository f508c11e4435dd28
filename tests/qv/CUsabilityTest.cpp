#include <gtest/gtest.h>

extern "C" int qv_test_from_c(void);

namespace {

TEST(CUsability, SystemInterfaceWorksFromC)
{
    EXPECT_EQ(qv_test_from_c(), 0) << "is the line of the check in c_usability.c";
}

}
