#include "Listener.hpp"

#include <dalnim/xml/AggregateConsumer.hpp>
#include <dalnim/xml/Consumer.hpp>
#include <tests/support/VirtualSlot.hpp>
#include <support/StandardLibrary.hpp>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <type_traits>

using com::kor::dal::nim::mem::ConstRcoRef;
using com::kor::dal::nim::mem::RcoRef;
using com::kor::dal::nim::mem::RefCntObject;
using com::kor::dal::nim::xml::AggregateConsumer;
using com::kor::dal::nim::xml::AggregateConsumerRef;
using com::kor::dal::nim::xml::Attribute;
using com::kor::dal::nim::xml::Attributes;
using com::kor::dal::nim::xml::Consumer;
using com::kor::dal::nim::xml::ConsumerRef;

static_assert(std::is_same_v<ConsumerRef, RcoRef<Consumer>>);
static_assert(std::is_same_v<AggregateConsumerRef, RcoRef<AggregateConsumer>>);
static_assert(std::is_same_v<Attributes, std::vector<Attribute>>);
static_assert(std::is_abstract_v<Consumer> && !std::is_abstract_v<AggregateConsumer>);
static_assert(std::is_base_of_v<RefCntObject, Consumer>);
static_assert(std::is_base_of_v<std::vector<RcoRef<Consumer>>, AggregateConsumer>);
// They are destroyed by their last reference only.
static_assert(!std::is_destructible_v<Consumer> && !std::is_destructible_v<AggregateConsumer>);

TEST(Consumer, OperationsKeepTheirSlots)
{
    EXPECT_EQ(2, virtualSlot(&Consumer::elementBegin));
    EXPECT_EQ(3, virtualSlot(&Consumer::elementEnd));
    EXPECT_EQ(4, virtualSlot(&Consumer::elementProcessData));
    EXPECT_EQ(5, virtualSlot(&Consumer::setDocumentId));
    EXPECT_EQ(-1, virtualSlot(&Consumer::getDocumentId));
    EXPECT_EQ(2, virtualSlot(&AggregateConsumer::elementBegin));
    EXPECT_EQ(3, virtualSlot(&AggregateConsumer::elementEnd));
    EXPECT_EQ(4, virtualSlot(&AggregateConsumer::elementProcessData));
    EXPECT_EQ(5, virtualSlot(&AggregateConsumer::setDocumentId));
}

TEST(Consumer, StoresTheDocumentIdentifier)
{
    test::ListenerRef listener(new test::Listener);
    EXPECT_EQ(0, listener->getDocumentId());
    listener->setDocumentId(-7);
    EXPECT_EQ(-7, listener->getDocumentId());
}

TEST(Attribute, CopiesAreIndependent)
{
    const Attribute attribute{"name", "value"};
    Attribute copy = attribute;
    copy.value = "other";
    EXPECT_EQ("name", copy.name);
    EXPECT_EQ("value", attribute.value);
    copy = attribute;
    EXPECT_EQ("value", copy.value);
    const Attributes attributes(3, attribute);
    const Attributes copies = attributes;
    EXPECT_EQ("value", copies.at(2).value);
}

#ifndef XML_STATIC_LIBRARY
TEST(ConsumerInstantiations, AreExportedByTheLibrary)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the names are those of libstdc++";
    }
    void* const library = dlopen("libdalnim.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, library) << dlerror();
    for (const char* name : {
             // RcoRef<Consumer>::operator->() and of AggregateConsumer
             "_ZN3com3kor3dal3nim3mem6RcoRefINS2_3xml8ConsumerEEptEv",
             "_ZN3com3kor3dal3nim3mem6RcoRefINS2_3xml17AggregateConsumerEEptEv",
             // ConstRcoRef<Consumer>::operator->() const and of AggregateConsumer
             "_ZNK3com3kor3dal3nim3mem11ConstRcoRefINS2_3xml8ConsumerEEptEv",
             "_ZNK3com3kor3dal3nim3mem11ConstRcoRefINS2_3xml17AggregateConsumerEEptEv",
             // vector<Attribute>::reserve() and vector<ConsumerRef>::reserve()
             "_ZNSt6vectorIN3com3kor3dal3nim3xml9AttributeESaIS5_EE7reserveEm",
             "_ZNSt6vectorIN3com3kor3dal3nim3mem6RcoRefINS3_3xml8ConsumerEEESaIS8_EE7reserveEm",
         }) {
        EXPECT_NE(nullptr, dlsym(library, name)) << name;
    }
    dlclose(library);
}
#endif
