#include <dalnim/dalbase.hpp>

#include <dalnim/xml/AggregateConsumer.hpp>

namespace com::kor::dal::nim::xml {

namespace {

/** Passes an event to every member, even after one has returned false. Returns true if all returned true. */
template <class Event>
bool forwardToAll(std::vector<ConsumerRef>& members, Event event)
{
    bool proceed = true;
    for (ConsumerRef& member : members) {
        if (!event(*member)) {
            proceed = false;
        }
    }
    return proceed;
}

}

AggregateConsumer::~AggregateConsumer() noexcept(false) = default;

bool AggregateConsumer::elementBegin(const String& tag, const String& fullTag, const Attributes& attrs)
{
    return forwardToAll(*this, [&](Consumer& member) { return member.elementBegin(tag, fullTag, attrs); });
}

bool AggregateConsumer::elementEnd(const String& tag, const String& fullTag)
{
    return forwardToAll(*this, [&](Consumer& member) { return member.elementEnd(tag, fullTag); });
}

bool AggregateConsumer::elementProcessData(const String& tag, const String& fullTag, const String& data,
                                           bool isCData)
{
    return forwardToAll(
        *this, [&](Consumer& member) { return member.elementProcessData(tag, fullTag, data, isCData); });
}

void AggregateConsumer::setDocumentId(int docId)
{
    Consumer::setDocumentId(docId);
    for (ConsumerRef& member : *this) {
        member->setDocumentId(docId);
    }
}

}
