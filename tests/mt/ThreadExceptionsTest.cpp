#include <dalnim/mt/Thread.hpp>

#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi/RX_Exception.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <typeinfo>

#include <pthread.h>

#include <log/Loggers.hpp>
#include <support/Valgrind.hpp>

#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Call;
using mttest::Content;
using mttest::OwnTask;
using mttest::refusal;
using mttest::Work;
using nim::mt::Task;
using nim::mt::Thread;
using nim::sys::system_error;

TEST(ThreadExceptions, JoinReturnsAClone)
{
    Work work([] { throw system_error(5, "disk gone"); });
    Thread thread(work);
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(typeid(system_error), typeid(*error));
    EXPECT_STREQ("disk gone", error->what());
    EXPECT_EQ(5, dynamic_cast<const system_error*>(error)->error());
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(ThreadExceptions, UnknownExceptionNamesTheThread)
{
    Work work([] { throw 42; });
    Thread thread(work, true, "Reader");
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(typeid(std::logic_error), typeid(*error));
    EXPECT_STREQ("Unknown Exception propagated from joinable thread 'Reader'", error->what());
}

/** An exception whose clone is not an exception. */
class Changeling : public std::runtime_error, public nim::type::Cloneable
{
public:
    Changeling() : std::runtime_error("changeling") {}
    ~Changeling() noexcept override = default;
    nim::type::Cloneable* clone(bool) const override
    {
        return new Content(0);
    }
};

/** An exception that throws another one when it is cloned. */
class Unclonable : public std::runtime_error, public nim::type::Cloneable
{
public:
    explicit Unclonable(Call unclonableCall)
        : std::runtime_error("unclonable"), call(std::move(unclonableCall))
    {
    }
    ~Unclonable() noexcept override = default;
    nim::type::Cloneable* clone(bool) const override
    {
        call();
        return nullptr;
    }

private:
    Call call;
};

/** Throws an exception whose clone() throws an exception of the same kind, and so on. */
void throwUnclonableForever()
{
    throw Unclonable(throwUnclonableForever);
}

/** Returns the message of the exception of join() if the run throws an Unclonable; empty for none. */
std::string replacementMessage(Call call)
{
    Work work([&call] { throw Unclonable(call); });
    Task target(work);
    Thread thread(target, true, "Reader");
    thread.start();
    const std::exception* const error = thread.join();
    EXPECT_EQ(Task::TSF_READY, thread.status());
    EXPECT_EQ(Task::TSF_READY, target.status());
    return error != nullptr ? error->what() : "";
}

TEST(ThreadExceptions, ExceptionThatCannotBeClonedIsReplacedByTheFailure)
{
    Work work([] { throw Changeling(); });
    Thread thread(work);
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(typeid(std::bad_cast), typeid(*error));
    EXPECT_EQ(Task::TSF_READY, thread.status());
    thread.start();
    EXPECT_NE(nullptr, thread.join()) << "the thread can run again";

    EXPECT_EQ("no copy", replacementMessage([] { throw system_error(5, "no copy"); }));
    EXPECT_EQ("std::bad_alloc", replacementMessage([] { throw std::bad_alloc(); }));
    EXPECT_EQ("Unknown Exception propagated from joinable thread 'Reader'",
              replacementMessage([] { throw 42; }));
    EXPECT_EQ("unclonable", replacementMessage(throwUnclonableForever));
    EXPECT_EQ("std::bad_cast", replacementMessage([] {}));
}

TEST(ThreadExceptions, BadAllocIsKeptForEachOfManyThreads)
{
    Work work([] { throw Unclonable([] { throw std::bad_alloc(); }); });
    for (int round = 0; round < 3; ++round) {
        Thread thread(work);
        Thread other(work);
        thread.start();
        other.start();
        const std::exception* const error = thread.join();
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(typeid(std::bad_alloc), typeid(*error));
        EXPECT_NE(nullptr, other.join());
        thread.start();
        EXPECT_NE(nullptr, thread.join());
    }
}

/** Makes thread creation fail until the end of the scope, by a default stack size that no system can provide.
 */
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&attributes);
        pthread_attr_t huge = attributes;
        pthread_attr_setstacksize(&huge, std::size_t(1) << 50);
        pthread_setattr_default_np(&huge);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads()
    {
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

private:
    pthread_attr_t attributes;
};

TEST(ThreadExceptions, FailedStartLeavesTheThreadStarting)
{
    if (support::isUnderValgrind()) {
        GTEST_SKIP() << "valgrind refuses such a stack with another number";
    }
    std::atomic<int> runs{0};
    Work work([&] { ++runs; });
    for (const bool joinable : {true, false}) {
        OwnTask target([&] { ++runs; });
        Thread thread(target, joinable);
        {
            const NoThreads refused;
            try {
                thread.start();
                ADD_FAILURE() << "nothing was thrown";
            } catch (const RX_Exception& error) {
                EXPECT_EQ(11, error.getCode());
            }
        }
        EXPECT_EQ(Task::TSF_STARTING, thread.status());
        EXPECT_EQ(Task::TSF_STARTING, target.status());
        EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    }
    EXPECT_EQ(0, runs);
}

TEST(ThreadExceptions, RefusedStartIsThrownByTheJoin)
{
    if (support::isUnderValgrind()) {
        GTEST_SKIP() << "valgrind refuses such a stack with another number";
    }
    Work work;
    Thread thread(work);
    {
        const NoThreads refused;
        EXPECT_THROW(thread.start(), RX_Exception);
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            thread.join();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const RX_Exception& error) {
            EXPECT_EQ(11, error.getCode());
        }
        EXPECT_EQ(Task::TSF_JOINED, thread.status());
    }
}

TEST(ThreadExceptions, ExceptionIsValidUntilTheNextRun)
{
    bool fails = true;
    Work work([&] {
        if (fails) {
            throw std::runtime_error("first");
        }
    });
    Thread thread(work);
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_STREQ("first", error->what());
    fails = false;
    EXPECT_STREQ("first", error->what());
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
}

TEST(ThreadExceptions, AlsoFinishATargetThatIsATask)
{
    Work work([] { throw std::runtime_error("no more"); });
    Task target(work);
    Thread thread(target, false);
    const logtest::DefaultLogger logger;
    thread.start();
    awaitEnd(thread);
    EXPECT_EQ(Task::TSF_FINISHED, target.status());
}

TEST(ThreadExceptions, AreNotLoggedByAJoinableThread)
{
    logtest::DefaultLogger logger;
    for (const bool known : {true, false}) {
        Work work([known] {
            if (known) {
                throw std::runtime_error("no more");
            }
            throw 42;
        });
        Thread thread(work);
        thread.start();
        EXPECT_NE(nullptr, thread.join());
    }
    EXPECT_EQ("", logger.taken());
}

/** Returns the records of a detached run of `call`. */
nim::String logged(logtest::DefaultLogger& logger, mttest::Call call)
{
    Work work(std::move(call));
    Thread thread(work, false, "Reader");
    thread.start();
    awaitEnd(thread);
    return logger.taken();
}

TEST(ThreadExceptions, AreLoggedByADetachedThread)
{
    logtest::DefaultLogger logger;
    EXPECT_EQ("global WARNING Thread : Exception from detached thread 'Reader' discarded : no more\n",
              logged(logger, [] { throw std::runtime_error("no more"); }));
    EXPECT_EQ("global WARNING Thread : Exception from detached thread 'Reader' discarded : 5 : disk gone",
              logtest::firstLine(logged(logger, [] { throw system_error(5, "disk gone"); })));
    EXPECT_EQ("global ERROR Thread : Unknown exception propagated from detached thread 'Reader'.\n",
              logged(logger, [] { throw 42; }));
    EXPECT_EQ("", logged(logger, [] {}));
}

TEST(ThreadExceptions, AreDiscardedIfTheSeverityIsDisabled)
{
    logtest::DefaultLogger logger;
    logger->setSeverity(nim::log::Severity_ERROR);
    logger.taken();
    EXPECT_EQ("", logged(logger, [] { throw std::runtime_error("no more"); }));
    EXPECT_EQ("global ERROR Thread : Unknown exception propagated from detached thread 'Reader'.\n",
              logged(logger, [] { throw 42; }));
    logger->setSeverity(nim::log::Severity_FATAL);
    logger.taken();
    EXPECT_EQ("", logged(logger, [] { throw 42; }));
}

/** A stream buffer on which every write throws. */
class ThrowingBuffer : public std::streambuf
{
protected:
    int_type overflow(int_type) override
    {
        throw 42;
    }
    std::streamsize xsputn(const char*, std::streamsize) override
    {
        throw std::runtime_error("refused");
    }
};

TEST(ThreadExceptions, DoNotTerminateTheProcessIfLoggingFails)
{
    logtest::DefaultLogger logger;
    ThrowingBuffer refusing;
    std::streambuf* const old = static_cast<std::ios&>(logger.sink).rdbuf(&refusing);
    logger.sink.exceptions(std::ios::badbit);
    {
        const logtest::Captured errors(std::cerr);
        Work work([] { throw std::runtime_error("no more"); });
        Thread thread(work, false);
        thread.start();
        awaitEnd(thread);
        Work unknown([] { throw 42; });
        Thread other(unknown, false);
        other.start();
        awaitEnd(other);
    }
    logger.sink.exceptions(std::ios::goodbit);
    static_cast<std::ios&>(logger.sink).rdbuf(old);
    logger.sink.clear();
}

}
