#include <dalnim/sys/internal/CurrentContext.hpp>

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <pthread.h>

namespace {

using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::mem::RefCntObject;
using com::kor::dal::nim::mem::RefCntObjectRef;
using com::kor::dal::nim::mt::Runnable;
using com::kor::dal::nim::mt::Thread;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::internal::CurrentContext;
using com::kor::dal::nim::sys::internal::CurrentContextRef;
using com::kor::dal::nim::sys::internal::ThreadState;
using com::kor::dal::nim::type::ContainerContext;
using com::kor::dal::nim::type::ContainerContextRef;
using com::kor::dal::nim::type::Context;
using com::kor::dal::nim::type::SecurityContext;

static_assert(std::is_base_of_v<ContainerContext, CurrentContext>);
static_assert(std::is_convertible_v<CurrentContext*, ContainerContext*>);
static_assert(!std::is_destructible_v<CurrentContext>, "it is destroyed only by its reference count");
static_assert(std::is_assignable_v<CurrentContext&, const CurrentContext&>);
static_assert(std::is_assignable_v<CurrentContext&, const ContainerContext&>);
static_assert(std::is_same_v<CurrentContextRef&, decltype((std::declval<ThreadState&>().contextRef))>);

constexpr unsigned int STAYS = 0x0001;
constexpr unsigned int SHARED = 0x0082;

/** An entry that calls a function in its destructor. */
class Item : public RefCntObject
{
public:
    explicit Item(std::function<void()> atDestruction = nullptr) : atDestruction_(std::move(atDestruction)) {}
    ~Item() noexcept(false) override
    {
        if (atDestruction_) {
            atDestruction_();
        }
    }

private:
    std::function<void()> atDestruction_;
};

RefCntObjectRef item(std::function<void()> atDestruction = nullptr)
{
    return RefCntObjectRef(new Item(std::move(atDestruction)));
}

class Flow : public Runnable
{
public:
    explicit Flow(std::function<void()> work) : work_(std::move(work)) {}
    void run() override
    {
        work_();
    }

private:
    std::function<void()> work_;
};

/** Returns true if none of the keys of these tests has an entry. */
bool isEmpty(const ContainerContext& context)
{
    return !context.find(STAYS) && !context.find(SHARED) && !context.find(SecurityContext::KEY);
}

TEST(CurrentContext, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("CurrentContext", CurrentContext::CLASS_NAME);
}

TEST(CurrentContext, KeyIsZero)
{
    EXPECT_EQ(0U, CurrentContextRef(new CurrentContext)->key());
}

TEST(CurrentContext, CanBeCopiedFromAnyContainer)
{
    CurrentContextRef source(new CurrentContext);
    const RefCntObjectRef shared = item();
    source->add(item(), STAYS);
    source->add(shared, SHARED);
    const ContainerContext& container = *source;
    const CurrentContext& same = *source;

    const CurrentContextRef one(new CurrentContext(container));
    const CurrentContextRef two(new CurrentContext(same));
    CurrentContextRef three(new CurrentContext);
    CurrentContextRef four(new CurrentContext);
    EXPECT_EQ(three.get(), &(*three = container));
    EXPECT_EQ(four.get(), &(*four = same));
    for (const CurrentContextRef& copy : {one, two, three, four}) {
        EXPECT_TRUE(!copy->find(STAYS));
        EXPECT_TRUE(copy->find(SHARED) == shared);
    }
    EXPECT_EQ(6U, shared->refCount());
    EXPECT_EQ(1U, one->refCount());
}

TEST(CurrentContext, IsOwnedByTheStateOfItsThread)
{
    ThreadState& state = ThreadState::current();
    EXPECT_FALSE(!state.contextRef);
    EXPECT_TRUE(Context::current() == state.contextRef.get());
    EXPECT_TRUE(ContainerContext::current() == state.contextRef.get());
    EXPECT_EQ(1U, state.contextRef->refCount());
}

void* checkOnForeignThread(void* good)
{
    const ContainerContextRef current = ContainerContext::current();
    *static_cast<bool*>(good) = !!current && isEmpty(*current) && current->refCount() == 2
                                && current == ThreadState::current().contextRef.get();
    return nullptr;
}

TEST(CurrentContext, IsEmptyOnThreadsNotStartedByTheLibrary)
{
    ContainerContext::current()->add(item(), SHARED);
    bool good = false;
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, checkOnForeignThread, &good));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    EXPECT_TRUE(good);
    ContainerContext::current()->clearContent();
}

TEST(CurrentContext, IsDestroyedWithItsThread)
{
    int destroyed = 0;
    std::thread([&destroyed] {
        ContainerContext::current()->add(item([&destroyed] { ++destroyed; }), STAYS);
    }).join();
    EXPECT_EQ(1, destroyed);
}

TEST(CurrentContext, OutlivesItsThreadIfItIsReferenced)
{
    int destroyed = 0;
    ContainerContextRef reference;
    std::thread([&] {
        reference = ContainerContext::current();
        reference->add(item([&destroyed] { ++destroyed; }), STAYS);
    }).join();
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(1U, reference->refCount());
    reference.clear();
    EXPECT_EQ(1, destroyed);
}

TEST(CurrentContext, IsDestroyedWithAThreadThatIsCancelled)
{
    int destroyed = 0;
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, nullptr,
                     [](void* count) -> void* {
                         ContainerContext::current()->add(item([count] { ++*static_cast<int*>(count); }),
                                                          STAYS);
                         pthread_exit(nullptr);
                     },
                     &destroyed));
    ASSERT_EQ(0, pthread_join(thread, nullptr));
    EXPECT_EQ(1, destroyed);
}

// An entry whose destructor uses the library at thread exit sees a new state and a new context.
TEST(CurrentContext, EntriesMayUseTheLibraryAtThreadExit)
{
    const ThreadState* first = nullptr;
    bool fresh = false;
    bool secure = true;
    StringVector trace;
    std::thread([&] {
        first = &ThreadState::current();
        first->mode = 0x55;
        ContainerContext::current()->add(item([&] {
                                             const ContainerContextRef now = ContainerContext::current();
                                             fresh = isEmpty(*now) && ThreadState::current().mode == 1
                                                     && ThreadState::current().where.empty();
                                             secure = !!SecurityContext::current();
                                             const StackTrack track("destructor()", 0);
                                             trace = StackTrace().trace();
                                         }),
                                         STAYS);
    }).join();
    EXPECT_TRUE(fresh);
    EXPECT_FALSE(secure);
    EXPECT_EQ(StringVector{"destructor()"}, trace);
}

// The system runs thread-exit handlers in at least four rounds; each state is destroyed in a separate round.
TEST(CurrentContext, EntriesAddedByDestructorsAtThreadExitAreDestroyed)
{
    std::vector<int> destroyed;
    std::thread([&destroyed] {
        ContainerContext::current()->add(item([&destroyed] {
                                             destroyed.push_back(1);
                                             ContainerContext::current()->add(
                                                 item([&destroyed] { destroyed.push_back(2); }), STAYS);
                                         }),
                                         STAYS);
    }).join();
    EXPECT_EQ((std::vector<int>{1, 2}), destroyed);
}

TEST(CurrentContext, ExceptionOfAnEntrysDestructorAtThreadExitIsIgnored)
{
    std::atomic<int> destroyed{0};
    std::thread([&destroyed] {
        for (const unsigned int key : {0x401U, 0x402U, 0x403U}) {
            ContainerContext::current()->add(item([&destroyed] {
                                                 ++destroyed;
                                                 throw std::runtime_error("destructor failed");
                                             }),
                                             key);
        }
    }).join();
    EXPECT_EQ(3, destroyed);
}

TEST(CurrentContext, IsCreatedAndDestroyedOnManyThreads)
{
    std::atomic<int> destroyed{0};
    const RefCntObjectRef shared = item([&destroyed] { ++destroyed; });
    for (int round = 0; round < 20; ++round) {
        std::vector<std::thread> threads;
        for (int number = 0; number < 8; ++number) {
            threads.emplace_back([&] {
                const ContainerContextRef current = ContainerContext::current();
                EXPECT_TRUE(isEmpty(*current));
                EXPECT_TRUE(ContainerContextRef(current)->add(shared, SHARED));
                EXPECT_TRUE(ContainerContextRef(current)->add(item([&destroyed] { ++destroyed; }), STAYS));
                const CurrentContextRef copy(new CurrentContext(*current));
                EXPECT_TRUE(copy->find(SHARED) == shared);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(160, destroyed);
    EXPECT_EQ(1U, shared->refCount());
}

TEST(CurrentContext, IsCopiedToAThreadThatTheLibraryStarts)
{
    const ContainerContextRef mine = ContainerContext::current();
    int destroyed = 0;
    const RefCntObjectRef shared = item([&destroyed] { ++destroyed; });
    ContainerContextRef(mine)->add(shared, SHARED);
    ContainerContextRef(mine)->add(item(), STAYS);
    bool same = true;
    bool inherited = false;
    int own = 0;
    Flow flow([&] {
        const ContainerContextRef current = ContainerContext::current();
        same = current == mine.get();
        inherited = current->find(SHARED) == shared && !current->find(STAYS);
        ContainerContextRef(current)->add(item([&own] { ++own; }), STAYS);
    });
    Thread thread(flow);
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_FALSE(same);
    EXPECT_TRUE(inherited);
    EXPECT_EQ(1, own);
    EXPECT_EQ(2U, shared->refCount());
    EXPECT_FALSE(!mine->find(STAYS));
    ContainerContextRef(mine)->clearContent();
}

}
