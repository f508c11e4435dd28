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
    /** The exception, unless it is std::bad_alloc. */
    std::exception_ptr failure;
    unsigned int faults = 0;
};

/** Runs an operation under a fault, which is disarmed before the failure is examined. */
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

/** Runs a body on a new thread, which has no ThreadState yet. */
template <class Body>
void onNewThread(Body&& body)
{
    std::thread(std::forward<Body>(body)).join();
}

struct WalkOptions
{
    Call call = Call::NEW;
    /** Returns true for exceptions other than std::bad_alloc that the operation documents. */
    std::function<bool(const std::exception&)> named;
    /** Whether to run everything on the calling thread, for objects that belong to a thread. */
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
 * Runs `operation` with its first, second, third ... allocation failing, until it makes no more; first with
 * only that allocation failing, then with all subsequent ones as well.
 *
 * Each step uses a new object from `prepare()`. `operation(object)` must succeed, or throw std::bad_alloc or
 * a documented exception. In the latter cases it must then succeed on the same object on another thread,
 * which fails if a lock is still held. `check(object, done)` checks the object after each attempt. Leaks are
 * detected by the address sanitizer.
 *
 * @return the number of allocations of the operation.
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
                ADD_FAILURE() << "the number of allocations grows without limit";
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
                ADD_FAILURE() << "neither std::bad_alloc nor a documented exception";
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
