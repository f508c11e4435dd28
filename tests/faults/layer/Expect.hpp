#ifndef TESTS_FAULTS_LAYER_EXPECT_HPP
#define TESTS_FAULTS_LAYER_EXPECT_HPP

#include "Fault.hpp"
#include "Walk.hpp"

#include <dalnim/String.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <string>

#include <unistd.h>

namespace faults {

using com::kor::dal::nim::String;

/** Returns what an operation throws under a fault: "number message" for a system_error; empty for nothing. */
template <class Operation>
String failureUnder(Fault& fault, Operation operation)
{
    const Outcome outcome = outcomeUnder(fault, operation);
    if (outcome.kind == Outcome::NO_MEMORY) {
        return "no memory";
    }
    if (outcome.kind == Outcome::DONE) {
        return String();
    }
    try {
        std::rethrow_exception(outcome.failure);
    } catch (const com::kor::dal::nim::sys::system_error& failure) {
        return std::to_string(failure.error()) + " " + failure.what();
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "something else";
    }
}

template <class Operation>
String failureOf(Call call, int error, Operation operation)
{
    Fault fault(call, error);
    return failureUnder(fault, operation);
}

/**
 * Runs a test's body in a new process of this program, to test what a process does only once. Must be the
 * first statement of a test whose suite is named as a death test.
 */
#define FAULTS_IN_NEW_PROCESS(...)                                                                           \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                                                          \
    EXPECT_EXIT(                                                                                             \
        {                                                                                                    \
            (__VA_ARGS__)();                                                                                 \
            ::_exit(testing::Test::HasFailure() ? 1 : 0);                                                    \
        },                                                                                                   \
        testing::ExitedWithCode(0), "")

}

#endif
