#include <dalnim/dalbase.hpp>

#include <dalnim/xml/AggregateConsumer.hpp>

namespace com::kor::dal::nim::xml {

namespace {

/** Asks every member, also behind one that refuses: true when none did. */
template <class Event>
bool askAll(std::vector<ConsumerRef>& members, Event event)
{
    bool goOn = true;
    for (ConsumerRef& member : members) {
        if (!event(*member)) {
            goOn = false;
        }
    }
    return goOn;
}

}

AggregateConsumer::~AggregateConsumer() noexcept(false) = default;

bool AggregateConsumer::elementBegin(const String& tag, const String& fullTag, const Attributes& attrs)
{
    return askAll(*this, [&](Consumer& member) { return member.elementBegin(tag, fullTag, attrs); });
}

bool AggregateConsumer::elementEnd(const String& tag, const String& fullTag)
{
    return askAll(*this, [&](Consumer& member) { return member.elementEnd(tag, fullTag); });
}

bool AggregateConsumer::elementProcessData(const String& tag, const String& fullTag, const String& data,
                                           bool isCData)
{
    return askAll(*this,
                  [&](Consumer& member) { return member.elementProcessData(tag, fullTag, data, isCData); });
}

void AggregateConsumer::setDocumentId(int docId)
{
    Consumer::setDocumentId(docId);
    for (ConsumerRef& member : *this) {
        member->setDocumentId(docId);
    }
}

}
