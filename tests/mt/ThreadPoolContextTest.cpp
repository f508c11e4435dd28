#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Found;
using mttest::Keys;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using nim::mt::Task;
using nim::mt::ThreadPool;

class ThreadPoolContext : public testing::Test
{
protected:
    ~ThreadPoolContext() noexcept override
    {
        keys.removeAll();
    }

    Keys keys;
    std::unique_ptr<ThreadPool> pool = makePool(1, 5);
};

TEST_F(ThreadPoolContext, EntriesAreDuplicatedByTheAttributesOfTheirKeys)
{
    keys.insertAll(7);
    Found found;
    OwnTask task([&] { found.read(keys); });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(nullptr, found.left);
    EXPECT_EQ(Keys::find(keys.shared), found.shared);
    ASSERT_TRUE(found.shallow);
    EXPECT_NE(Keys::find(keys.shallow), found.shallow.get());
    EXPECT_EQ(Content::SHALLOW, found.shallow->origin);
    EXPECT_EQ(7, found.shallow->value);
    ASSERT_TRUE(found.deep);
    EXPECT_EQ(Content::DEEP, found.deep->origin);
}

TEST_F(ThreadPoolContext, IsCopiedByAdd)
{
    auto* const content = new Content(1);
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(content), keys.shallow);
    int seen = 0;
    bool later = true;
    OwnTask task([&] {
        seen = Keys::find(keys.shallow)->value;
        later = Keys::find(keys.shared) != nullptr;
    });
    {
        Occupation worker(*pool, 1);
        EXPECT_TRUE(pool->add(task));
        content->value = 2;
        keys.insert(keys.shared, 3);
        worker.end();
    }
    awaitEnd(task);
    EXPECT_EQ(1, seen);
    EXPECT_FALSE(later);
}

TEST_F(ThreadPoolContext, IsEmptyForTheNextTask)
{
    keys.insertAll(7);
    OwnTask first([&] { keys.insert(keys.left, 8); });
    EXPECT_TRUE(pool->add(first));
    keys.removeAll();
    bool none = false;
    OwnTask second([&] { none = keys.noneFound(); });
    EXPECT_TRUE(pool->add(second));
    awaitEnd(second);
    EXPECT_TRUE(none);
}

TEST_F(ThreadPoolContext, ContextOfAWorkerRemainsOneObject)
{
    keys.insertAll(7);
    const nim::type::ContainerContext* contexts[2] = {nullptr, nullptr};
    OwnTask first([&] { contexts[0] = nim::type::ContainerContext::current().get(); });
    OwnTask second([&] { contexts[1] = nim::type::ContainerContext::current().get(); });
    EXPECT_TRUE(pool->add(first));
    EXPECT_TRUE(pool->add(second));
    awaitEnd(second);
    EXPECT_NE(nullptr, contexts[0]);
    EXPECT_EQ(contexts[0], contexts[1]);
}

TEST_F(ThreadPoolContext, ContextIsClearedAfterATask)
{
    const nim::mem::RefCntObjectRef shared = keys.insert(keys.shared, 1);
    const std::uint32_t before = shared->refCount();
    OwnTask task;
    EXPECT_TRUE(pool->add(task));
    while (shared->refCount() != before || task.status() != Task::TSF_FINISHED) {
        std::this_thread::yield();
    }
    // The worker still exists, and is idle.
    OwnTask failing([] { throw 42; });
    EXPECT_TRUE(pool->add(failing));
    pool->shutdown(true);
    EXPECT_EQ(before, shared->refCount());
}

TEST_F(ThreadPoolContext, GivenContextIsCopied)
{
    keys.insert(keys.shallow, 1);
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new Content(9)), keys.deep);
    for (const bool block : {true, false}) {
        bool adders = true;
        int seen = 0;
        OwnTask task([&] {
            adders = Keys::find(keys.shallow) != nullptr;
            seen = Keys::find(keys.deep)->value;
        });
        EXPECT_TRUE(pool->add(task, block, context.get()));
        awaitEnd(task);
        EXPECT_FALSE(adders);
        EXPECT_EQ(9, seen);
    }
}

TEST_F(ThreadPoolContext, SecurityContextIsShared)
{
    using nim::type::SecurityContext;
    const nim::type::ContextScope scope(SecurityContext::opCreate, nim::type::ContextScope::opRemove,
                                        SecurityContext::KEY, 0, nim::type::ContainerContext::current());
    const SecurityContext* const here = SecurityContext::current().get();
    ASSERT_NE(nullptr, here);
    const SecurityContext* there = nullptr;
    OwnTask task([&] { there = SecurityContext::current().get(); });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(here, there);
}

}
