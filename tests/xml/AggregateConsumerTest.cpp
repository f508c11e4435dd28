#include "Listener.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/AggregateConsumer.hpp>
#include <dalnim/xml/Parser.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::xml::AggregateConsumer;
using com::kor::dal::nim::xml::AggregateConsumerRef;
using com::kor::dal::nim::xml::Attributes;
using com::kor::dal::nim::xml::ConsumerRef;
using com::kor::dal::nim::xml::Parser;
using test::Listener;
using test::ListenerRef;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class AggregateConsumerTest : public testing::Test
{
protected:
    AggregateConsumerTest()
        : aggregate(new AggregateConsumer), a(new Listener("A", lines)), b(new Listener("B", lines)),
          consumer(aggregate), parser(consumer)
    {
    }

    std::vector<std::string> lines;
    AggregateConsumerRef aggregate;
    ListenerRef a;
    ListenerRef b;
    ConsumerRef consumer;
    Parser parser;
};

}

TEST_F(AggregateConsumerTest, EmptyAggregateReturnsTrueForEveryEvent)
{
    EXPECT_TRUE(aggregate->elementBegin("a", "a", Attributes()));
    EXPECT_TRUE(aggregate->elementProcessData("a", "a", "x", false));
    EXPECT_TRUE(aggregate->elementEnd("a", "a"));
    parser.parse("<a>x<b/></a>", 9);
    EXPECT_EQ(aggregate->getDocumentId(), 9);
}

TEST_F(AggregateConsumerTest, PassesEachEventToMembersInListOrder)
{
    aggregate->push_back(b);
    aggregate->push_back(a);
    parser.parse("<r x='1'>t<![CDATA[c]]></r>", 4);
    EXPECT_THAT(lines,
                ElementsAre("B: begin r r x=[1]", "A: begin r r x=[1]", "B: data r r [t]", "A: data r r [t]",
                            "B: cdata r r [c]", "A: cdata r r [c]", "B: end r r", "A: end r r"));
    EXPECT_EQ(aggregate->getDocumentId(), 4);
    EXPECT_EQ(a->getDocumentId(), 4);
    EXPECT_EQ(b->getDocumentId(), 4);
}

TEST_F(AggregateConsumerTest, MembersAfterOneThatStopsStillReceiveTheEvent)
{
    aggregate->push_back(a);
    aggregate->push_back(b);
    a->answer = [](const std::string& line) { return line.substr(0, 4) != "data"; };
    try {
        parser.parse("<r>t<s/></r>", 1);
        FAIL();
    } catch (const system_error& error) {
        EXPECT_EQ(error.error(), 700012002);
        EXPECT_STREQ(error.what(), "Error to String function unimplemented");
    }
    EXPECT_THAT(lines, ElementsAre("A: begin r r", "B: begin r r", "A: data r r [t]", "B: data r r [t]"));
}

TEST_F(AggregateConsumerTest, AnyMemberCanStopTheParseInEachOperation)
{
    aggregate->push_back(a);
    aggregate->push_back(b);
    for (const ListenerRef& refuser : {a, b}) {
        const_cast<Listener&>(*refuser).answer = [](const std::string&) { return false; };
        EXPECT_FALSE(aggregate->elementBegin("a", "a", Attributes()));
        EXPECT_FALSE(aggregate->elementProcessData("a", "a", "x", true));
        EXPECT_FALSE(aggregate->elementEnd("a", "a"));
        const_cast<Listener&>(*refuser).answer = nullptr;
    }
    EXPECT_EQ(lines.size(), 12U);
}

TEST_F(AggregateConsumerTest, MemberAddedAfterTheFirstParseGetsNoIdentifier)
{
    aggregate->push_back(a);
    parser.parse("<r/>", 6);
    aggregate->push_back(b);
    parser.parse("<r/>", 7);
    EXPECT_EQ(a->getDocumentId(), 6);
    EXPECT_EQ(b->getDocumentId(), 0);
    EXPECT_THAT(lines, ElementsAre("A: begin r r", "A: end r r", "A: begin r r", "B: begin r r", "A: end r r",
                                   "B: end r r"));
}

TEST_F(AggregateConsumerTest, MemberListedTwiceReceivesEventsTwice)
{
    aggregate->push_back(a);
    aggregate->push_back(a);
    parser.parse("<r/>", 1);
    EXPECT_THAT(lines, ElementsAre("A: begin r r", "A: begin r r", "A: end r r", "A: end r r"));
}

TEST_F(AggregateConsumerTest, ExceptionSkipsTheRemainingMembers)
{
    aggregate->push_back(a);
    aggregate->push_back(b);
    a->answer = [](const std::string&) -> bool { throw std::domain_error("A"); };
    EXPECT_THROW(parser.parse("<r/>", 1), std::domain_error);
    EXPECT_THAT(lines, ElementsAre("A: begin r r"));
}

TEST_F(AggregateConsumerTest, AggregatesNest)
{
    const AggregateConsumerRef inner(new AggregateConsumer);
    AggregateConsumerRef(inner)->push_back(a);
    aggregate->push_back(ConsumerRef(AggregateConsumerRef(inner)));
    aggregate->push_back(b);
    parser.parse("<r/>", 3);
    EXPECT_THAT(lines, ElementsAre("A: begin r r", "B: begin r r", "A: end r r", "B: end r r"));
    EXPECT_EQ(inner->getDocumentId(), 3);
    EXPECT_EQ(a->getDocumentId(), 3);
}

TEST(AggregateConsumerLife, ReleasesItsMembersWhenDestroyed)
{
    struct Mortal : Listener
    {
        explicit Mortal(bool& flag) : dead(flag) {}
        ~Mortal() override
        {
            dead = true;
        }
        bool& dead;
    };
    bool dead = false;
    AggregateConsumerRef aggregate(new AggregateConsumer);
    aggregate->push_back(ConsumerRef(new Mortal(dead)));
    {
        ConsumerRef consumer(aggregate);
        Parser parser(consumer);
        aggregate = nullptr;
        consumer = nullptr;
        parser.parse("<a/>", 1);
        EXPECT_FALSE(dead);
    }
    EXPECT_TRUE(dead);
}
