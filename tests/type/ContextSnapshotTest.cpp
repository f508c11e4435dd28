#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <utility>

#include <mt/Work.hpp>
#include <qv/Threads.hpp>

#include "Content.hpp"

// The context of a pool task adopts the entries of a snapshot of its submitter's context.

namespace {

using com::kor::dal::nim::mt::ThreadPool;
using mttest::OwnTask;
using qvtest::Gate;
using namespace typetest;

/** Content that counts how often a reference to it or to one of its clones is acquired. */
class Tallied : public Sheep
{
public:
    explicit Tallied(std::atomic<int>& acquisitions) : tally(acquisitions) {}
    Tallied(const Tallied& other) : com::kor::dal::nim::type::Object(other), Sheep(other), tally(other.tally)
    {
    }
    Tallied& operator=(const Tallied&) = delete;
    ~Tallied() noexcept override {}

    Cloneable* clone(bool) const override
    {
        return new Tallied(*this);
    }
    void acquireRef() const override
    {
        ++tally;
        Sheep::acquireRef();
    }

private:
    std::atomic<int>& tally;
};

/** Runs `work` in a task whose context is a duplicate of `source`. */
template <class Function>
void runInTask(const ContainerContext& source, Function work)
{
    ThreadPool pool(nullptr, 1, 0, 0, 0, 0, 10);
    OwnTask task(work);
    EXPECT_TRUE(pool.add(task, true, &source));
    pool.shutdown(true);
}

TEST(ContextSnapshot, SharedEntryIsAcquiredOnceForTheQueueAndOnceForTheTask)
{
    std::atomic<int> acquisitions{0};
    Bag source;
    source.add(RefCntObjectRef(new Tallied(acquisitions)), SHARED);
    acquisitions = 0;
    bool isFound = false;
    runInTask(source, [&isFound] {
        ContainerContextRef context = ContainerContext::current();
        isFound = !!context->find(SHARED) && context->add(RefCntObjectRef(), STAYS);
    });
    EXPECT_TRUE(isFound);
    EXPECT_EQ(2, acquisitions);
}

TEST(ContextSnapshot, CloneIsAcquiredOnce)
{
    for (const unsigned int key : {SHALLOW, DEEP, DEEP_AND_SHALLOW}) {
        std::atomic<int> acquisitions{0};
        Bag source;
        source.add(RefCntObjectRef(new Tallied(acquisitions)), key);
        acquisitions = 0;
        std::uint32_t count = 0;
        runInTask(source, [&count, key] {
            ContainerContextRef context = ContainerContext::current();
            context->add(RefCntObjectRef(), STAYS);
            count = context->find(key)->refCount();
        });
        EXPECT_EQ(1, acquisitions);
        EXPECT_EQ(1U, count);
    }
}

// The thread sanitizer reports a read that changes the context.
TEST(ContextSnapshot, SeveralThreadsMayReadAndCopyTheContextOfATask)
{
    constexpr int ROUNDS = 200;
    std::atomic<int> right{0};
    Bag source;
    source.add(RefCntObjectRef(new Sheep), SHARED);
    const RefCntObject* const object = std::as_const(source).find(SHARED).get();
    for (int round = 0; round < ROUNDS; ++round) {
        runInTask(source, [&right, object] {
            const ContainerContextRef context = ContainerContext::current();
            const ContainerContext& mine = *context;
            Gate gate;
            const auto read = [&gate, &mine, &right, object] {
                gate.pass();
                const Bag copy(mine);
                right += mine.find(SHARED).get() == object && copy.find(SHARED).get() == object ? 1 : 0;
            };
            std::thread first(read);
            std::thread second(read);
            gate.open();
            first.join();
            second.join();
        });
        EXPECT_EQ(1U, object->refCount());
    }
    EXPECT_EQ(2 * ROUNDS, right);
}

TEST(ContextSnapshot, FoundReferencesStayValidWhenTheTaskChangesItsContext)
{
    Bag source;
    source.add(RefCntObjectRef(new Sheep), SHARED);
    source.add(RefCntObjectRef(new Sheep), SHARED + 1);
    const RefCntObject* const object = std::as_const(source).find(SHARED).get();
    bool isValid = false;
    runInTask(source, [&isValid, object] {
        ContainerContextRef context = ContainerContext::current();
        const RefCntObjectRef& found = context->find(SHARED);
        context->add(RefCntObjectRef(new Item), STAYS);
        context->remove(SHARED + 1);
        isValid = found.get() == object;
        Bag other;
        context->swap(other);
        isValid = isValid && found.get() == object;
    });
    EXPECT_TRUE(isValid);
    EXPECT_EQ(1U, object->refCount());
}

}
