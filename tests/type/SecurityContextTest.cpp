#include <dalnim/type/SecurityContext.hpp>

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/type/ContextScope.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include <support/VirtualSlot.hpp>

#include "Content.hpp"

namespace {

using com::kor::dal::nim::mem::ConstRefCntObjectRef;
using com::kor::dal::nim::mt::Runnable;
using com::kor::dal::nim::mt::Thread;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::type::ConstSecurityTokenRef;
using com::kor::dal::nim::type::ContextScope;
using com::kor::dal::nim::type::SecurityContext;
using com::kor::dal::nim::type::SecurityContextRef;
using namespace typetest;

static_assert(std::is_base_of_v<Context, SecurityContext>);
static_assert(std::is_same_v<ConstSecurityTokenRef, ConstRefCntObjectRef>);
static_assert(std::is_same_v<decltype(SecurityContext::KEY), const std::uint32_t>);
static_assert(!std::is_default_constructible_v<SecurityContext>, "opCreate() alone makes one");
static_assert(!std::is_copy_constructible_v<SecurityContext> && !std::is_copy_assignable_v<SecurityContext>);
static_assert(!std::is_destructible_v<SecurityContext>, "it goes by its count only");
static_assert(std::is_same_v<decltype(&SecurityContext::opCreate), ContextScope::Operation>);
static_assert(
    std::is_same_v<decltype(std::declval<const SecurityContext&>().token()), const ConstSecurityTokenRef&>);

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

SecurityContextRef created()
{
    const RefCntObjectRef made = SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 0);
    return SecurityContextRef(dynamic_cast<SecurityContext*>(const_cast<RefCntObject*>(made.get())));
}

/** Provides a security context in the thread's own context for a block. */
class SecurityScope
{
public:
    SecurityScope()
        : scope(SecurityContext::opCreate, ContextScope::opRemove, SecurityContext::KEY, 0,
                ContainerContext::current())
    {
    }
    ContextScope scope;
};

TEST(SecurityContext, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("SecurityContext", SecurityContext::CLASS_NAME);
}

TEST(SecurityContext, AttributeOfItsKeyIsShared)
{
    EXPECT_EQ(1U, Context::keyAttributes(SecurityContext::KEY));
    EXPECT_EQ(SecurityContext::KEY, created()->key());
    EXPECT_EQ(2, virtualSlot(&SecurityContext::key));
}

TEST(SecurityContext, IsAbsentOnAFreshThread)
{
    std::thread([] { EXPECT_TRUE(!SecurityContext::current()); }).join();
}

TEST(SecurityContext, OpCreateReturnsNothingForOtherKeys)
{
    const RefCntObjectRef made = SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 1);
    EXPECT_EQ(1U, made->refCount());
    EXPECT_NE(nullptr, dynamic_cast<const SecurityContext*>(made.get()));
    EXPECT_TRUE(made != SecurityContext::opCreate(ContainerContextRef(), SecurityContext::KEY, 1));
    for (const unsigned int key : {0U, SecurityContext::KEY + 1, SecurityContext::KEY ^ 0x180, RESERVED}) {
        EXPECT_TRUE(!SecurityContext::opCreate(ContainerContext::current(), key, 0));
    }
}

TEST(SecurityContext, ExistsWithinAScope)
{
    {
        const SecurityScope outer;
        EXPECT_TRUE(outer.scope.active());
        const SecurityContextRef mine = SecurityContext::current();
        EXPECT_FALSE(!mine);
        EXPECT_TRUE(!mine->token());
        {
            const SecurityScope inner;
            EXPECT_FALSE(inner.scope.active());
            EXPECT_TRUE(SecurityContext::current() == mine);
        }
        EXPECT_TRUE(SecurityContext::current() == mine);
        EXPECT_EQ(2U, mine->refCount());
    }
    EXPECT_TRUE(!SecurityContext::current());
}

TEST(SecurityContext, ForeignObjectUnderItsKeyIsIgnored)
{
    ContainerContext::current()->add(RefCntObjectRef(new Item), SecurityContext::KEY);
    EXPECT_TRUE(!SecurityContext::current());
    ContainerContext::current()->remove(SecurityContext::KEY);
    ContainerContext::current()->add(RefCntObjectRef(), SecurityContext::KEY);
    EXPECT_TRUE(!SecurityContext::current());
    ContainerContext::current()->remove(SecurityContext::KEY);
}

TEST(SecurityContext, ThreadsOfTheFlowFindTheSameObject)
{
    const SecurityScope scope;
    SecurityContextRef mine = SecurityContext::current();
    mine->token(ConstSecurityTokenRef(new Item));
    const SecurityContext* seen = nullptr;
    const RefCntObject* token = nullptr;
    Flow flow([&] {
        seen = SecurityContext::current().get();
        token = SecurityContext::current()->token().get();
    });
    Thread thread(flow);
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(mine.get(), seen);
    EXPECT_EQ(mine->token().get(), token);
    EXPECT_EQ(2U, mine->refCount());
    std::thread([] { EXPECT_TRUE(!SecurityContext::current()) << "not started by the library"; }).join();
}

TEST(SecurityContext, SharedObjectOutlivesItsScope)
{
    int live = 0;
    RefCntObjectRef copy;
    {
        const SecurityScope scope;
        SecurityContext::current()->token(ConstSecurityTokenRef(new Item(&live)));
        copy = RefCntObjectRef(new Bag(*ContainerContext::current()));
    }
    EXPECT_TRUE(!SecurityContext::current());
    EXPECT_EQ(1, live);
    copy.clear();
    EXPECT_EQ(0, live);
}

TEST(SecurityContext, TokenCanBeSet)
{
    int live = 0;
    {
        SecurityContextRef context = created();
        EXPECT_TRUE(!context->token());
        const ConstSecurityTokenRef token(new Item(&live));
        context->token(token);
        EXPECT_TRUE(context->token() == token);
        EXPECT_EQ(2U, token->refCount());
    }
    EXPECT_EQ(0, live);
}

TEST(SecurityContext, EmptyTokenHasNoEffect)
{
    SecurityContextRef context = created();
    context->token(ConstSecurityTokenRef());
    EXPECT_TRUE(!context->token());
    context->token(ConstSecurityTokenRef());
    const ConstSecurityTokenRef token(new Item);
    context->token(token);
    EXPECT_TRUE(context->token() == token);
}

TEST(SecurityContext, ReplacingTheTokenThrows)
{
    SecurityContextRef context = created();
    const ConstSecurityTokenRef token(new Item);
    context->token(token);
    for (const ConstSecurityTokenRef& second :
         {token, ConstSecurityTokenRef(new Item), ConstSecurityTokenRef()}) {
        const StackTrack outer("outer()", "Class", "name.space", 17);
        const StackTrack inner("inner()", 0);
        try {
            context->token(second);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const system_error&) {
            ADD_FAILURE() << "misuse throws std::logic_error";
        } catch (const std::logic_error& error) {
            const String text = error.what();
            const String front =
                "Attempt to replace SecurityToken at:\ncom.kor.dal.nim.type.SecurityContext.token():";
            const String back = "\ninner()\nname.space.Class.outer():17\n";
            EXPECT_EQ(front, text.substr(0, front.size()));
            ASSERT_GT(text.size(), front.size() + back.size());
            EXPECT_EQ(back, text.substr(text.size() - back.size()));
            EXPECT_EQ(text.size() - back.size(), text.find('\n', front.size()));
        }
        EXPECT_TRUE(context->token() == token);
    }
    EXPECT_EQ(2U, token->refCount());
}

}
