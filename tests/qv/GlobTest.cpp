#include <qv/pmx/glob.h>

#include <gtest/gtest.h>

#include "Scratch.hpp"

namespace {

using qvtest::Scratch;

TEST(Glob, ReturnsTheMatchingNamesInOrder)
{
    const Scratch scratch;
    scratch.file("b1");
    scratch.file("a2");
    scratch.file("c");
    qv_glob_t glob;
    ASSERT_EQ(qv_si_fileio_glob_construct(&glob, scratch.path().c_str(), "?<->"), 0);
    EXPECT_STREQ(qv_si_fileio_glob_next(&glob), "a2");
    EXPECT_STREQ(qv_si_fileio_glob_next(&glob), "b1");
    EXPECT_EQ(qv_si_fileio_glob_next(&glob), nullptr);
    EXPECT_EQ(qv_si_fileio_glob_next(&glob), nullptr);
    qv_si_fileio_glob_destruct(&glob);
}

TEST(Glob, CanBeIteratedAndDestructedAfterAFailure)
{
    qv_glob_t glob;
    EXPECT_EQ(qv_si_fileio_glob_construct(&glob, "/no/such/directory", "*"), 2);
    EXPECT_EQ(qv_si_fileio_glob_next(&glob), nullptr);
    qv_si_fileio_glob_destruct(&glob);

    EXPECT_EQ(qv_si_fileio_glob_construct(&glob, "/", "["), 22);
    EXPECT_EQ(qv_si_fileio_glob_next(&glob), nullptr);
    qv_si_fileio_glob_destruct(&glob);
}

TEST(Glob, SecondDestructHasNoEffect)
{
    qv_glob_t glob;
    ASSERT_EQ(qv_si_fileio_glob_construct(&glob, "/", "*"), 0);
    qv_si_fileio_glob_destruct(&glob);
    qv_si_fileio_glob_destruct(&glob);
    EXPECT_EQ(qv_si_fileio_glob_next(&glob), nullptr);
}

}
