#include <dalnim/mt/Thread.hpp>

#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <thread>

#include <qv/Threads.hpp>

#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Found;
using mttest::Keys;
using mttest::OwnThread;
using mttest::Work;
using nim::mt::Task;
using nim::mt::Thread;
using qvtest::Gate;

class ThreadContext : public testing::Test
{
protected:
    ~ThreadContext() override
    {
        keys.removeAll();
    }

    Keys keys;
};

TEST_F(ThreadContext, EntriesAreDuplicatedByTheAttributesOfTheirKeys)
{
    keys.insertAll(7);
    const Content* const source = Keys::find(keys.shared);
    const Content* const cloned = Keys::find(keys.shallow);
    for (const bool joinable : {true, false}) {
        Found found;
        Work work([&] { found.read(keys); });
        Thread thread(work, joinable);
        thread.start();
        if (joinable) {
            thread.join();
        } else {
            awaitEnd(thread);
        }
        EXPECT_EQ(nullptr, found.left);
        EXPECT_EQ(source, found.shared);
        ASSERT_TRUE(found.shallow);
        EXPECT_NE(cloned, found.shallow.get());
        EXPECT_EQ(Content::SHALLOW, found.shallow->origin);
        EXPECT_EQ(7, found.shallow->value);
        ASSERT_TRUE(found.deep);
        EXPECT_EQ(Content::DEEP, found.deep->origin);
    }
    EXPECT_NE(nullptr, Keys::find(keys.left)) << "the starter's context is unchanged";
}

TEST_F(ThreadContext, IsCopiedByStart)
{
    auto* const content = new Content(1);
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(content), keys.shallow);
    int seen = 0;
    bool later = true;
    Gate enter;
    OwnThread thread([&] {
        enter.pass();
        seen = Keys::find(keys.shallow)->value;
        later = Keys::find(keys.shared) != nullptr;
    });
    thread.start();
    content->value = 2;
    keys.insert(keys.shared, 3);
    enter.open();
    thread.join();
    EXPECT_EQ(1, seen);
    EXPECT_FALSE(later);
}

TEST_F(ThreadContext, GivenContextIsCopied)
{
    keys.insert(keys.shallow, 1);
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new Content(9)), keys.deep);
    bool starters = true;
    int seen = 0;
    Work work([&] {
        starters = Keys::find(keys.shallow) != nullptr;
        seen = Keys::find(keys.deep)->value;
    });
    Thread thread(work);
    thread.start(context.get());
    thread.join();
    EXPECT_FALSE(starters);
    EXPECT_EQ(9, seen);
    seen = 0;
    const std::unique_ptr<Thread> another(Thread::start(work, true, nullptr, context.get()));
    another->join();
    EXPECT_EQ(9, seen);
}

TEST_F(ThreadContext, IsEmptyIfTheStarterHasNoContext)
{
    bool none = false;
    Work work([&] { none = keys.noneFound(); });
    Thread thread(work);
    thread.start();
    thread.join();
    EXPECT_TRUE(none);
}

/** An entry that looks up the current context in its destructor. */
class ContextReader : public nim::mem::RefCntObject
{
public:
    ContextReader(const Keys& itsKeys, const nim::type::ContainerContext*& seenContext, bool& seenEmpty)
        : keys(itsKeys), context(seenContext), empty(seenEmpty)
    {
    }
    ~ContextReader() noexcept override
    {
        context = nim::type::ContainerContext::current().get();
        empty = keys.noneFound();
    }

private:
    const Keys& keys;
    const nim::type::ContainerContext*& context;
    bool& empty;
};

TEST_F(ThreadContext, IsEmptyWhileItsEntriesAreDestroyed)
{
    const nim::type::ContainerContext* during = nullptr;
    const nim::type::ContainerContext* after = nullptr;
    bool empty = false;
    OwnThread thread([&] {
        const nim::type::ContainerContextRef current = nim::type::ContainerContext::current();
        during = current.get();
        nim::type::ContainerContextRef(current)->add(
            nim::mem::RefCntObjectRef(new ContextReader(keys, after, empty)), keys.left);
        keys.insert(keys.shared, 1);
    });
    thread.start();
    thread.join();
    EXPECT_NE(nullptr, during);
    EXPECT_EQ(during, after);
    EXPECT_TRUE(empty);
}

TEST_F(ThreadContext, SecurityContextIsShared)
{
    using nim::type::SecurityContext;
    const nim::type::ContextScope scope(SecurityContext::opCreate, nim::type::ContextScope::opRemove,
                                        SecurityContext::KEY, 0, nim::type::ContainerContext::current());
    const SecurityContext* const here = SecurityContext::current().get();
    ASSERT_NE(nullptr, here);
    const SecurityContext* there = nullptr;
    const SecurityContext* deeper = nullptr;
    OwnThread thread([&] {
        there = SecurityContext::current().get();
        OwnThread inner([&] { deeper = SecurityContext::current().get(); });
        inner.start();
        inner.join();
    });
    thread.start();
    thread.join();
    EXPECT_EQ(here, there);
    EXPECT_EQ(here, deeper);
}

TEST_F(ThreadContext, EntriesAreReleasedAtTheEnd)
{
    const nim::mem::RefCntObjectRef shared = keys.insert(keys.shared, 1);
    const std::uint32_t before = shared->refCount();
    Work work;
    Thread thread(work, false);
    thread.start();
    awaitEnd(thread);
    while (shared->refCount() != before) {
        std::this_thread::yield();
    }
    Thread joined(work);
    joined.start();
    joined.join();
    EXPECT_EQ(before, shared->refCount());
}

TEST_F(ThreadContext, FailedCopyOfTheContextLeavesTheThreadStarting)
{
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(new Content(-1)), keys.deep);
    Work work;
    Task target(work);
    Thread thread(target);
    EXPECT_THROW(thread.start(), std::runtime_error);
    EXPECT_EQ(Task::TSF_STARTING, thread.status());
    EXPECT_EQ(Task::TSF_STARTING, target.status());
}

}
