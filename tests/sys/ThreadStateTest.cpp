#include <dalnim/sys/internal/ThreadState.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/System.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::ThreadID_t;
using com::kor::dal::nim::sys::InitLock;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::StackTrackState;
using com::kor::dal::nim::sys::System;
using com::kor::dal::nim::sys::internal::ThreadMode_t;
using com::kor::dal::nim::sys::internal::ThreadState;
namespace mt = com::kor::dal::nim::mt;

static_assert(!std::is_default_constructible_v<ThreadState>, "current() alone makes one");
static_assert(!std::is_copy_constructible_v<ThreadState>);
static_assert(!std::is_copy_assignable_v<ThreadState>);
static_assert(std::is_destructible_v<ThreadState>);
static_assert(std::is_same_v<const std::int32_t&, decltype(ThreadState::tid)>,
              "the child of a fork changes what a const field could not");
static_assert(std::is_same_v<std::uint32_t, ThreadMode_t>);
static_assert(std::is_same_v<ThreadMode_t, decltype(ThreadState::mode)>);
static_assert(std::is_same_v<mt::Task*, decltype(ThreadState::task)>);
static_assert(std::is_same_v<mt::Thread*, decltype(ThreadState::thrd)>);
static_assert(std::is_same_v<mt::ThreadPool*, decltype(ThreadState::pool)>);
static_assert(std::is_same_v<const mt::MutexOps*, decltype(ThreadState::lock)>);
static_assert(std::is_same_v<StackTrackState, decltype(ThreadState::where)>);

bool isFresh(const ThreadState& state)
{
    return state.tid == gettid() && state.mode == 1 && state.task == nullptr && state.thrd == nullptr
           && state.pool == nullptr && state.lock == nullptr && state.where.empty();
}

/** Runs `work` on `count` threads, which begin at the same time. */
template <class Work>
void runConcurrently(std::size_t count, Work work)
{
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < count; ++number) {
        threads.emplace_back([&ready, &work, count, number] {
            ++ready;
            while (ready.load() != count) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// If this test runs alone, these are the first threads of the process, and create the key concurrently.
TEST(ThreadState, IsConstructedOnManyThreadsConcurrently)
{
    constexpr std::size_t THREADS = 16;
    std::vector<int> good(THREADS, 0);
    std::vector<const ThreadState*> states(THREADS, nullptr);
    std::atomic<std::size_t> arrived{0};
    runConcurrently(THREADS, [&](std::size_t number) {
        ThreadState& state = ThreadState::current();
        states[number] = &state;
        good[number] = isFresh(state) && &ThreadState::current() == &state;
        ++arrived;
        while (arrived.load() != THREADS) {
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(std::vector<int>(THREADS, 1), good);
    EXPECT_EQ(THREADS, (std::set<const ThreadState*>(states.begin(), states.end()).size()));
}

TEST(ThreadState, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ThreadState", ThreadState::CLASS_NAME);
}

TEST(ThreadState, CurrentReturnsTheSameState)
{
    ThreadState& state = ThreadState::current();
    EXPECT_EQ(&state, &ThreadState::current());
    EXPECT_EQ(gettid(), state.tid);
}

TEST(ThreadState, FieldsAreNullInitially)
{
    std::thread([] { EXPECT_TRUE(isFresh(ThreadState::current())); }).join();
}

TEST(ThreadState, OrderOfFieldsIsFixed)
{
    const ThreadState& state = ThreadState::current();
    const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
    EXPECT_EQ(address(state), address(state.tid));
    EXPECT_LT(address(state.tid), address(state.mode));
    EXPECT_LT(address(state.mode), address(state.task));
    EXPECT_LT(address(state.task), address(state.thrd));
    EXPECT_LT(address(state.thrd), address(state.pool));
    EXPECT_LT(address(state.pool), address(state.lock));
    EXPECT_LT(address(state.lock), address(state.where));
}

TEST(ThreadState, BelongsToItsThread)
{
    ThreadState& mine = ThreadState::current();
    mine.mode |= 0x40;
    std::thread([&mine] {
        ThreadState& other = ThreadState::current();
        EXPECT_NE(&mine, &other);
        EXPECT_EQ(1U, other.mode);
        other.mode |= 0x80;
    }).join();
    EXPECT_EQ(0x41U, mine.mode);
    mine.mode = 1;
}

void* onForeignThread(void* good)
{
    *static_cast<bool*>(good) = isFresh(ThreadState::current()) && System::threadId() == gettid();
    return nullptr;
}

TEST(ThreadState, IsConstructedOnThreadsThatTheLibraryDidNotStart)
{
    bool good = false;
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, onForeignThread, &good));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    EXPECT_TRUE(good);
}

TEST(ThreadState, IsConstructedUnderTheInitLock)
{
    std::thread([] {
        const InitLock lock(true);
        EXPECT_TRUE(isFresh(ThreadState::current()));
    }).join();
}

// A thread-exit handler that runs after that of the state, since its key was created later.

struct Epilogue
{
    bool fresh = false;
    bool again = false;
    StringVector trace;
    int rounds = 0;
};
pthread_key_t epilogueKey;

void epilogue(void* value)
{
    Epilogue& seen = *static_cast<Epilogue*>(value);
    ThreadState& state = ThreadState::current();
    seen.fresh = isFresh(state);
    seen.again = &ThreadState::current() == &state;
    state.mode = 0xff;
    const StackTrack track("epilogue()", 0);
    seen.trace = StackTrace().trace();
    if (++seen.rounds == 1) {
        pthread_setspecific(epilogueKey, value);
    }
}

TEST(ThreadState, IsConstructedAgainAfterItsDestruction)
{
    ThreadState::current();
    ASSERT_EQ(0, pthread_key_create(&epilogueKey, epilogue));
    Epilogue seen;
    std::thread([&seen] {
        ThreadState& state = ThreadState::current();
        state.mode = 0x7f;
        state.lock = reinterpret_cast<const mt::MutexOps*>(&state);
        state.where.reserve(100);
        pthread_setspecific(epilogueKey, &seen);
    }).join();
    EXPECT_TRUE(seen.fresh);
    EXPECT_TRUE(seen.again);
    EXPECT_EQ(StringVector{"epilogue()"}, seen.trace);
    EXPECT_EQ(2, seen.rounds);
    EXPECT_EQ(0, pthread_key_delete(epilogueKey));
}

// Forks. The children report by their exit status and run no code of the test framework.

int statusOfChild(pid_t child)
{
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
}

bool childKnowsItself()
{
    return ThreadState::current().tid == getpid() && ThreadState::current().tid == gettid()
           && System::threadId() == getpid() && System::procId() == getpid();
}

TEST(ThreadStateFork, ChildOfAForkHasItsOwnThreadId)
{
    const ThreadID_t before = ThreadState::current().tid;
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        _exit(childKnowsItself() && before != getpid() ? 0 : 1);
    }
    EXPECT_EQ(0, statusOfChild(child));
    EXPECT_EQ(before, ThreadState::current().tid);
    EXPECT_EQ(before, System::threadId());
}

TEST(ThreadStateFork, ChildOfAForkOnAnyThreadHasItsOwnThreadId)
{
    int status = -1;
    std::thread([&status] {
        const ThreadID_t before = ThreadState::current().tid;
        const pid_t child = fork();
        if (child == 0) {
            _exit(childKnowsItself() ? 0 : 1);
        }
        status = statusOfChild(child);
        EXPECT_EQ(before, ThreadState::current().tid);
    }).join();
    EXPECT_EQ(0, status);
}

TEST(ThreadStateFork, ChildOfAForkOnAThreadWithoutAStateHasItsOwnThreadId)
{
    int status = -1;
    std::thread([&status] {
        const pid_t child = fork();
        if (child == 0) {
            _exit(isFresh(ThreadState::current()) && childKnowsItself() ? 0 : 1);
        }
        status = statusOfChild(child);
    }).join();
    EXPECT_EQ(0, status);
}

TEST(ThreadStateFork, GrandchildHasItsOwnThreadId)
{
    ThreadState::current();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            _exit(childKnowsItself() ? 0 : 1);
        }
        _exit(statusOfChild(grandchild) == 0 && childKnowsItself() ? 0 : 1);
    }
    EXPECT_EQ(0, statusOfChild(child));
}

TEST(ThreadStateFork, ChildOfAForkKeepsTheRestOfTheState)
{
    const StackTrack track("forking()", 0);
    ThreadState& state = ThreadState::current();
    state.mode = 9;
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        _exit(&ThreadState::current() == &state && state.mode == 9
                      && StackTrace().trace() == StringVector{"forking()"}
                  ? 0
                  : 1);
    }
    EXPECT_EQ(0, statusOfChild(child));
    state.mode = 1;
}

TEST(ThreadStateFork, ReferenceToTheThreadIdIsUpdatedInTheChild)
{
    const ThreadID_t& tid = ThreadState::current().tid;
    const ThreadID_t before = tid;
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        _exit(tid == gettid() && tid != before ? 0 : 1);
    }
    EXPECT_EQ(0, statusOfChild(child));
    EXPECT_EQ(before, tid);
}

bool handlerKnewItself = false;

TEST(ThreadStateFork, IsUpdatedBeforeTheForkHandlersOfTheProgramRun)
{
    ASSERT_EQ(0, pthread_atfork(nullptr, nullptr, [] { handlerKnewItself = childKnowsItself(); }));
    ThreadState::current();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        _exit(handlerKnewItself ? 0 : 1);
    }
    EXPECT_EQ(0, statusOfChild(child));
}

}
