#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/sys/internal/CurrentContext.hpp>

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Keys;
using mttest::makePool;
using mttest::OwnTask;
using mttest::Work;
using nim::mem::ConstRcoRef;
using nim::mem::RcoRef;
using nim::mt::Runnable;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using nim::sys::internal::CurrentContext;
using nim::type::ContainerContext;
using nim::type::ContainerContextRef;

// ---- calls that must not compile ------------------------------------------------------------

struct NotARunnable
{};
class OtherCounted : public nim::mem::RefCntObject
{};
typedef RcoRef<OtherCounted> OtherRef;
/** The type of a name that the caller stores in a string, as `text.c_str()`. */
typedef const char* Name;
typedef const char (&Literal)[4];
typedef void (*Function)();
struct Lambda
{
    operator Function() const;
};

/** Converts like a lambda with parameters and a result. */
typedef int (*OtherFunction)(int);
struct OtherLambda
{
    operator OtherFunction() const;
};
struct Flag
{
    operator bool() const;
};

template <class Void, class... Arguments>
struct StartsImpl : std::false_type
{
};
template <class... Arguments>
struct StartsImpl<std::void_t<decltype(std::declval<Thread&>().start(std::declval<Arguments>()...))>,
                  Arguments...> : std::true_type
{
};
/** True if `thread.start(...)` compiles with arguments of these types; also for the static overloads. */
template <class... Arguments>
constexpr bool STARTS = StartsImpl<void, Arguments...>::value;

template <class Void, class... Arguments>
struct AddsImpl : std::false_type
{
};
template <class... Arguments>
struct AddsImpl<std::void_t<decltype(std::declval<ThreadPool&>().add(std::declval<Arguments>()...))>,
                Arguments...> : std::true_type
{
};
/** True if `pool.add(...)` compiles with arguments of these types. */
template <class... Arguments>
constexpr bool ADDS = AddsImpl<void, Arguments...>::value;

static_assert(!std::is_constructible_v<Task, Work*, Name>);
static_assert(!std::is_constructible_v<Task, Work*, Name, Name>);
static_assert(!std::is_constructible_v<Task, Work*, char*>);
static_assert(!std::is_constructible_v<Task, Work*, Literal>);
static_assert(!std::is_constructible_v<Task, Work*, OtherRef&>);
static_assert(!std::is_constructible_v<Task, Work*, Lambda>);
static_assert(!std::is_constructible_v<Task, Work*, OtherLambda>);
static_assert(std::is_constructible_v<Task, Work*, Flag>);
static_assert(std::is_constructible_v<Task, Work*, bool, Name, Name>);
static_assert(std::is_constructible_v<Task, Work*, int>);
static_assert(std::is_constructible_v<Task, Work&, Name>);

static_assert(!std::is_constructible_v<Thread, NotARunnable*>);
static_assert(!std::is_constructible_v<Thread, const Work*>, "a target is run, which changes it");
static_assert(!std::is_constructible_v<Thread, int NotARunnable::*>);
static_assert(!std::is_constructible_v<Thread, Name>);
static_assert(!std::is_constructible_v<Thread, Name, Name>);
static_assert(!std::is_constructible_v<Thread, Literal>);
static_assert(!std::is_constructible_v<Thread, Function>);
static_assert(!std::is_constructible_v<Thread, Lambda>);
static_assert(!std::is_constructible_v<Thread, OtherLambda>);
static_assert(!std::is_constructible_v<Thread, OtherRef&>);
static_assert(!std::is_constructible_v<Thread, Work*, Name>);
static_assert(!std::is_constructible_v<Thread, Work*, bool, Name>);
static_assert(!std::is_constructible_v<Thread, Work&, Name>);
static_assert(!std::is_constructible_v<Thread, Work&, OtherRef&>);
static_assert(std::is_constructible_v<Thread, Work*>);
static_assert(std::is_constructible_v<Thread, Work*, bool, bool, Name>);
static_assert(std::is_constructible_v<Thread, Work&, bool, Name>);
static_assert(std::is_constructible_v<Thread, bool, Name>);
static_assert(std::is_constructible_v<Thread, int>);

static_assert(!STARTS<Name>);
static_assert(!STARTS<Literal>);
static_assert(!STARTS<OtherRef&>);
static_assert(!STARTS<NotARunnable*>);
static_assert(!STARTS<Name, ContainerContext*>);
static_assert(!STARTS<ContainerContextRef&, ContainerContext*>, "a context is no flag");
static_assert(!STARTS<Work&, Name, Name>);
static_assert(!STARTS<Work*, bool, Name, Name>);
static_assert(!STARTS<Work*, Name, bool, Name>);
static_assert(STARTS<>);
static_assert(STARTS<bool>);
static_assert(STARTS<std::nullptr_t>);
static_assert(STARTS<CurrentContext*>);
static_assert(STARTS<bool, const ContainerContext*>);
static_assert(STARTS<Work&, bool, Name>);
static_assert(STARTS<Work*, bool, bool, Name, const ContainerContext*>);

static_assert(!ADDS<Task&, Name>);
static_assert(!ADDS<Task&, Literal>);
static_assert(!ADDS<Task&, OtherRef&>);
static_assert(!ADDS<Task&, ContainerContext*>);
static_assert(!ADDS<Task*, ContainerContext*>);
static_assert(!ADDS<Task*, bool, const ContainerContext*>);
static_assert(!ADDS<Task*, OtherRef&>);
static_assert(!ADDS<Task*, bool, OtherRef&>);
static_assert(!ADDS<Task&, ContainerContextRef&, ContainerContext*>, "a context is no flag");
static_assert(ADDS<Task&>);
static_assert(ADDS<OwnTask&, bool, const ContainerContext*>);
static_assert(ADDS<OwnTask*, bool, bool, CurrentContext*>);
static_assert(ADDS<Task*, int, int>);

// ---- a reference-counted context is passed as the context, not as a flag --------------------

class CountedContext : public testing::Test
{
protected:
    CountedContext()
    {
        context->add(nim::mem::RefCntObjectRef(new Content(7)), key);
    }

    /** Stores the entry of the current context under the key in `found`; -1 for none. */
    void readEntry()
    {
        const Content* const content = Keys::find(key);
        found = content != nullptr ? content->value : -1;
    }

    const unsigned int key = nim::type::Context::allocateKey(1);
    RcoRef<CurrentContext> context{new CurrentContext};
    ContainerContextRef general{context};
    ConstRcoRef<ContainerContext> constant{context.get()};
    int found = 0;
};

TEST_F(CountedContext, ContextReferenceIsUsedByStart)
{
    Work work([this] { readEntry(); });
    for (int form = 0; form < 4; ++form) {
        found = 0;
        Thread thread(work, form != 0);
        if (form == 0) {
            thread.start(true, general);
        } else if (form == 1) {
            thread.start(general);
        } else if (form == 2) {
            thread.start(context);
        } else {
            thread.start(constant);
        }
        EXPECT_TRUE(thread.joinable());
        EXPECT_EQ(nullptr, thread.join());
        EXPECT_EQ(7, found) << "form " << form;
    }
}

TEST_F(CountedContext, StartWithAContextReferenceKeepsTheThreadDetached)
{
    Work work([this] { readEntry(); });
    Thread thread(work, false);
    thread.start(general);
    awaitEnd(thread);
    EXPECT_FALSE(thread.joinable());
    EXPECT_EQ(7, found);
}

TEST_F(CountedContext, ContextReferenceIsUsedByANewThread)
{
    Work work([this] { readEntry(); });
    std::unique_ptr<Thread> thread(Thread::start(work, true, nullptr, general));
    EXPECT_EQ(nullptr, thread->join());
    EXPECT_EQ(7, found);
    found = 0;
    thread.reset(Thread::start(&work, true, false, nullptr, context));
    EXPECT_EQ(nullptr, thread->join());
    EXPECT_EQ(7, found);
}

TEST_F(CountedContext, EmptyContextReferenceSelectsTheCallersContext)
{
    const Keys keys;
    keys.insert(key, 3);
    Work work([this] { readEntry(); });
    Thread thread(work);
    thread.start(ContainerContextRef());
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(3, found);
    ContainerContext::current()->remove(key);
}

TEST_F(CountedContext, ContextReferenceIsUsedByAPoolTask)
{
    const auto pool = makePool(1, 5);
    for (int form = 0; form < 6; ++form) {
        found = 0;
        OwnTask task([this] { readEntry(); });
        if (form == 0) {
            EXPECT_TRUE(pool->add(task, general));
        } else if (form == 1) {
            EXPECT_TRUE(pool->add(task, true, context));
        } else if (form == 2) {
            EXPECT_TRUE(pool->add(&task, constant));
        } else if (form == 3) {
            EXPECT_TRUE(pool->add(&task, false, general));
        } else if (form == 4) {
            EXPECT_TRUE(pool->add(&task, false, true, context));
        } else {
            EXPECT_TRUE(pool->add(task, false, general));
        }
        awaitEnd(task);
        EXPECT_EQ(7, found) << "form " << form;
    }
}

TEST_F(CountedContext, ContextReferenceDoesNotMakeAPoolTaskManaged)
{
    std::atomic<int> destroyed{0};
    {
        const auto pool = makePool(1, 5);
        OwnTask task([this] { readEntry(); }, &destroyed);
        EXPECT_TRUE(pool->add(&task, general));
        pool->shutdown();
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

}
