#ifndef TESTS_FAULTS_LAYER_WALK_HPP
#define TESTS_FAULTS_LAYER_WALK_HPP

#include "Fault.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <functional>
#include <new>
#include <string>
#include <thread>

namespace faults {

/** How an operation ended under a fault. */
struct Outcome
{
    enum Kind { DONE, NO_MEMORY, FAILED };

    Kind kind = DONE;
    /** Of a failure other than missing memory. */
    std::exception_ptr failure;
    unsigned int faults = 0;
};

/** Runs an operation with a fault armed, which is gone by the time a failure is looked at. */
template <class Operation>
Outcome outcomeUnder(Fault& fault, Operation&& operation)
{
    Outcome outcome;
    try {
        operation();
        fault.disarm();
    } catch (const std::bad_alloc&) {
        fault.disarm();
        outcome.kind = Outcome::NO_MEMORY;
    } catch (...) {
        fault.disarm();
        outcome.kind = Outcome::FAILED;
        outcome.failure = std::current_exception();
    }
    outcome.faults = fault.failed();
    return outcome;
}

/** Runs a body on a thread that the library has not seen yet. */
template <class Body>
void onNewThread(Body&& body)
{
    std::thread(std::forward<Body>(body)).join();
}

struct WalkOptions
{
    Call call = Call::NEW;
    /** Whether a failure other than std::bad_alloc is one that the operation names. */
    std::function<bool(const std::exception&)> named;
    /** Whether all is to run on the caller's thread, for what belongs to a thread. */
    bool onThisThread = false;
};

inline bool isNamed(const WalkOptions& options, const Outcome& outcome)
{
    try {
        std::rethrow_exception(outcome.failure);
    } catch (const std::exception& failure) {
        EXPECT_TRUE(options.named) << "unexpected failure: " << failure.what();
        return options.named && options.named(failure);
    } catch (...) {
        return false;
    }
}

/**
 * The out-of-memory walk: lets the first, the second, the third allocation of `operation` fail, until
 * it needs no more; once with that one failing, once with all from it on.
 *
 * Each step gets an object from `prepare()`. `operation(object)` either succeeds in spite of the fault,
 * or fails with std::bad_alloc or a failure of its own; then it must succeed on the same object, asked by
 * another thread, so that no lock can be left behind. `check(object, done)` looks at the object: done or
 * not done. What is lost shows under the address sanitizer.
 *
 * @return how many allocations the operation has.
 */
template <class Prepare, class Operation, class Check>
unsigned int walkAllocations(Prepare prepare, Operation operation, Check check, WalkOptions options = {})
{
    constexpr unsigned int LIMIT = 5000;
    unsigned int allocations = 0;
    for (const unsigned int count : {1U, Fault::EVER}) {
        for (unsigned int n = 1;; ++n) {
            SCOPED_TRACE((count == 1 ? "without allocation " : "without any allocation from ")
                         + std::to_string(n));
            if (n > LIMIT) {
                ADD_FAILURE() << "needs more and more";
                return 0;
            }
            auto object = prepare();
            Outcome outcome;
            const auto attempt = [&] {
                Fault fault(options.call, ENOMEM, n, count);
                outcome = outcomeUnder(fault, [&] { operation(object); });
            };
            const auto run = [&](const auto& body) {
                if (options.onThisThread) {
                    body();
                } else {
                    onNewThread(body);
                }
            };
            run(attempt);
            const bool done = outcome.kind == Outcome::DONE;
            if (outcome.kind == Outcome::FAILED && !isNamed(options, outcome)) {
                ADD_FAILURE() << "neither bad_alloc nor a failure of its own";
                return n;
            }
            check(object, done);
            if (!done) {
                run([&] { operation(object); });
                check(object, true);
            }
            if (testing::Test::HasFailure()) {
                return n;
            }
            if (outcome.faults == 0) {
                allocations = n - 1;
                break;
            }
        }
    }
    return allocations;
}

}

#endif
