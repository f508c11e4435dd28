#ifndef DALNIM_XML_AGGREGATECONSUMER_HPP
#define DALNIM_XML_AGGREGATECONSUMER_HPP

#include <dalnim/xml/Consumer.hpp>

#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * A list of consumers that passes each event to all of its members, in list order.
 *
 * If a member returns false, the remaining members still receive the event; then the parse stops. If a
 * member throws, the exception propagates immediately, and the remaining members do not receive the event.
 *
 * The list is filled with the operations of `std::vector`, and must not be modified during a parse. It holds
 * a reference to each member.
 */
class DALNIM_API AggregateConsumer : public Consumer, public std::vector<ConsumerRef>
{
public:
    static constexpr const char CLASS_NAME[] = "AggregateConsumer";

    AggregateConsumer() = default;

    bool elementBegin(const String& tag, const String& fullTag, const Attributes& attrs) override;
    bool elementEnd(const String& tag, const String& fullTag) override;
    bool elementProcessData(const String& tag, const String& fullTag, const String& data,
                            bool isCData) override;
    /** Stores the identifier, and passes it to the current members. Members added later do not receive it. */
    void setDocumentId(int docId) override;

protected:
    ~AggregateConsumer() noexcept(false) override;
};

/** A reference-counting pointer to an AggregateConsumer. */
typedef mem::RcoRef<AggregateConsumer> AggregateConsumerRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<xml::AggregateConsumer>;
extern template class DALNIM_API RcoRef<xml::AggregateConsumer>;

}

#endif
