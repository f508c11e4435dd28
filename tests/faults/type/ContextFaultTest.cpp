#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "log/Loggers.hpp"
#include "type/Content.hpp"

#include <dalnim/type/ContainerContext.hpp>
#include <dalnim/type/Context.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <support/StandardLibrary.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

using namespace faults;
using namespace typetest;
using com::kor::dal::nim::PointerInt_t;
using com::kor::dal::nim::type::ContextScope;
using com::kor::dal::nim::type::SecurityContext;
using com::kor::dal::nim::type::SecurityContextRef;
using faults::String;

/** Returns a bag with an entry of each kind. */
BagRef filledBag(int* living)
{
    BagRef bag(new Bag);
    bag->add(RefCntObjectRef(new Item(living)), STAYS);
    bag->add(RefCntObjectRef(new Item(living)), SHARED);
    bag->add(RefCntObjectRef(new Sheep(living)), SHALLOW);
    bag->add(RefCntObjectRef(new Sheep(living)), DEEP);
    return bag;
}

TEST(ContextFault, EntryIsAddedOrThrows)
{
    int living = 0;
    const RefCntObjectRef item(new Item(&living));
    EXPECT_GE(walkAllocations([&] { return filledBag(&living); },
                              [&](BagRef& bag) { EXPECT_TRUE(bag->add(item, SHARED + 1)); },
                              [&](BagRef& bag, bool done) {
                                  EXPECT_EQ(done, bag->find(SHARED + 1) == item);
                                  EXPECT_EQ(done ? 2u : 1u, item->refCount(true));
                              }),
              2u);
    EXPECT_EQ(1u, item->refCount(true));
    const ContextRef context(new Named(SHARED));
    EXPECT_GE(walkAllocations([] { return BagRef(new Bag); },
                              [&](BagRef& bag) { EXPECT_TRUE(bag->add(context)); },
                              [&](BagRef& bag, bool done) { EXPECT_EQ(done, !!bag->find(SHARED)); }),
              2u);
}

TEST(ContextFault, EntryIsRemovedOrThrows)
{
    int living = 0;
    struct Subject
    {
        BagRef bag;
        RefCntObjectRef removed;
    };
    walkAllocations(
        [&] {
            return Subject{filledBag(&living), RefCntObjectRef()};
        },
        [](Subject& subject) { subject.removed = subject.bag->remove(SHARED); },
        [](Subject& subject, bool done) {
            EXPECT_EQ(done, !!subject.removed);
            EXPECT_EQ(!done, !!subject.bag->find(SHARED));
        });
    EXPECT_EQ(0, living);
}

TEST(ContextFault, DuplicateIsConstructedOrThrows)
{
    int living = 0;
    const BagRef source = filledBag(&living);
    EXPECT_GE(walkAllocations([] { return BagRef(); }, [&](BagRef& bag) { bag = new Bag(*source); },
                              [&](BagRef& bag, bool done) {
                                  EXPECT_EQ(done, !!bag);
                                  EXPECT_EQ(done ? 6 : 4, living);
                              }),
              5u);
    EXPECT_EQ(4, living);
}

TEST(ContextFault, AssignmentSucceedsOrChangesNothing)
{
    int living = 0;
    int before = 0;
    const BagRef source = filledBag(&living);
    struct Subject
    {
        BagRef bag{new Bag};
        RefCntObjectRef old;
    };
    EXPECT_GE(walkAllocations(
                  [&] {
                      Subject subject;
                      subject.old = new Item(&before);
                      subject.bag->add(subject.old, SHARED);
                      return subject;
                  },
                  [&](Subject& subject) { *subject.bag = *source; },
                  [&](Subject& subject, bool done) {
                      EXPECT_EQ(!done, subject.bag->find(SHARED) == subject.old);
                      EXPECT_EQ(done, !!subject.bag->find(SHALLOW));
                      EXPECT_EQ(done ? 1u : 2u, subject.old->refCount(true));
                  }),
              5u);
    EXPECT_EQ(4, living);
    EXPECT_EQ(0, before);
}

TEST(ContextFault, ClearingAllocatesNothing)
{
    int living = 0;
    BagRef bag = filledBag(&living);
    onNewThread([&] {
        const Fault fault(Call::NEW, ENOMEM);
        bag->clearContent();
        EXPECT_EQ(0u, fault.calls());
    });
    EXPECT_EQ(0, living);
}

TEST(ContextFault, KeysAndThreadContextsAreCreatedOrThrow)
{
    EXPECT_GE(walkAllocations([] { return 0u; }, [](UInt32_t& key) { key = Context::allocateKey(1); },
                              [](UInt32_t key, bool done) {
                                  EXPECT_EQ(done ? 1u : 0u, key != 0 ? Context::keyAttributes(key) : 0u);
                              }),
              1u);
    EXPECT_GE(walkAllocations([] { return false; },
                              [](bool& found) {
                                  found = !!ContainerContext::current() && !!Context::current()
                                          && !SecurityContext::current();
                              },
                              [](bool found, bool done) { EXPECT_EQ(done, found); }),
              1u);
}

int made = 0;

RefCntObjectRef makeItem(const ContainerContextRef&, unsigned int, PointerInt_t)
{
    return RefCntObjectRef(new Item(&made));
}

TEST(ContextFault, ScopeIsSetOrThrows)
{
    struct Subject
    {
        BagRef bag{new Bag};
        std::unique_ptr<ContextScope> scope;
    };
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](std::unique_ptr<Subject>& subject) {
                                  subject->scope.reset(new ContextScope(&makeItem, &ContextScope::opRemove,
                                                                        SHARED, 0, subject->bag));
                              },
                              [](std::unique_ptr<Subject>& subject, bool done) {
                                  EXPECT_EQ(done, subject->scope != nullptr);
                                  EXPECT_EQ(done, !!subject->bag->find(SHARED));
                                  EXPECT_EQ(done ? 1 : 0, made);
                                  if (done) {
                                      EXPECT_TRUE(subject->scope->active());
                                      subject->scope.reset();
                                      EXPECT_FALSE(subject->bag->find(SHARED));
                                  }
                              }),
              3u);
    EXPECT_EQ(0, made);
}

TEST(ContextFault, ScopeIsSetAgainOrBecomesInactive)
{
    struct Subject
    {
        BagRef first{new Bag};
        BagRef second{new Bag};
        ContextScope scope{&makeItem, &ContextScope::opRemove, SHARED, 0, first};
    };
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [](std::unique_ptr<Subject>& subject) {
                                  subject->scope.set(&makeItem, &ContextScope::opRemove, SHARED + 1, 0,
                                                     subject->second);
                              },
                              [](std::unique_ptr<Subject>& subject, bool done) {
                                  const bool old = !!subject->first->find(SHARED);
                                  const bool now = !!subject->second->find(SHARED + 1);
                                  EXPECT_EQ(done, now);
                                  EXPECT_FALSE(old && now);
                                  EXPECT_EQ(old || now, subject->scope.active());
                                  EXPECT_EQ(old || now ? 1 : 0, made);
                              }),
              3u);
    EXPECT_EQ(0, made);
}

TEST(ContextFault, ScopeIsClearedOrUnchanged)
{
    struct Subject
    {
        BagRef bag{new Bag};
        ContextScope scope{&makeItem, &ContextScope::opRemove, SHARED, 0, bag};
    };
    walkAllocations([] { return std::make_unique<Subject>(); },
                    [](std::unique_ptr<Subject>& subject) { subject->scope.clear(); },
                    [](std::unique_ptr<Subject>& subject, bool done) {
                        EXPECT_EQ(!done, subject->scope.active());
                        EXPECT_EQ(!done, !!subject->bag->find(SHARED));
                    });
    EXPECT_EQ(0, made);
}

/** The end of a scope does not throw, not even on a thread without a ThreadState. */
TEST(ContextFault, ScopeEndsIfMemoryRunsOut)
{
    logtest::DefaultLogger logger;
    logger->setSeverity(logtest::log::Severity_WARNING);
    unsigned int failed = 0;
    for (unsigned int n = 1; n == 1 || failed != 0; ++n) {
        logger.taken();
        BagRef bag(new Bag);
        auto scope = std::make_unique<ContextScope>(&makeItem, &ContextScope::opRemove, SHARED, 0, bag);
        onNewThread([&] {
            Fault fault(Call::NEW, ENOMEM, n, 1);
            scope.reset();
            fault.disarm();
            failed = fault.failed();
        });
        const bool isLeft = !!bag->find(SHARED);
        EXPECT_EQ(
            isLeft ? "com.kor.dal.nim WARNING ContextScope : Unexpected context exception : std::bad_alloc\n"
                   : "",
            logger.taken())
            << n;
        EXPECT_TRUE(failed != 0 || !isLeft);
    }
}

TEST(ContextFault, TokenIsSetOrThrows)
{
    const RefCntObjectRef object = SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 0);
    EXPECT_TRUE(!!object);
    EXPECT_GE(walkAllocations([] { return RefCntObjectRef(); },
                              [](RefCntObjectRef& context) {
                                  context = SecurityContext::opCreate(ContainerContextRef(),
                                                                      SecurityContext::KEY, 0);
                              },
                              [](RefCntObjectRef& context, bool done) { EXPECT_EQ(done, !!context); }),
              2u);
    const RefCntObjectRef token(new Item);
    walkAllocations(
        [] {
            return SecurityContextRef(&dynamic_cast<SecurityContext&>(
                *SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 0)));
        },
        [&](SecurityContextRef& context) { context->token(token); },
        [&](SecurityContextRef& context, bool done) { EXPECT_EQ(done, context->token() == token); });
}

TEST(ContextFault, SecondTokenThrowsOrRunsOutOfMemory)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the streams of libc++ replace std::bad_alloc by a failure of their own";
    }
    SecurityContextRef context(&dynamic_cast<SecurityContext&>(
        *SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 0)));
    const RefCntObjectRef token(new Item);
    context->token(token);
    EXPECT_GE(walkAllocations([] { return String(); },
                              [&](String& found) {
                                  try {
                                      context->token(token);
                                  } catch (const std::logic_error& error) {
                                      found = error.what();
                                  }
                              },
                              [](String& found, bool done) {
                                  const String begin = "Attempt to replace SecurityToken at:\n"
                                                       "com.kor.dal.nim.type.SecurityContext.token():";
                                  EXPECT_EQ(done ? begin : String(), found.substr(0, begin.size()));
                                  EXPECT_EQ(done, !found.empty() && found.back() == '\n');
                              }),
              4u);
}

}
