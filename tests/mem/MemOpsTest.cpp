#include <dalnim/mem/MemOps.hpp>

#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

using com::kor::dal::nim::sys::system_error;
namespace mem = com::kor::dal::nim::mem;

TEST(MemOps, NullDereferenceThrowsSystemError)
{
    try {
        mem::throwNullDerefException();
    } catch (const system_error& error) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Attempt to dereference null reference.", error.what());
    }
    EXPECT_THROW(mem::throwNullDerefException(), system_error);
}

TEST(MemOps, BadCastThrowsBadCast)
{
    EXPECT_THROW(mem::throwBadCastException(), std::bad_cast);
}

}
