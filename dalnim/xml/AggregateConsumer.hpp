#ifndef DALNIM_XML_AGGREGATECONSUMER_HPP
#define DALNIM_XML_AGGREGATECONSUMER_HPP

#include <dalnim/xml/Consumer.hpp>

#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * A consumer that is a list of consumers, and repeats each event to each of them, in their order. One
 * that asks to stop stops the parse, but only after all have had the event. What one throws ends the
 * round: those behind it miss the event.
 *
 * The list is filled as any vector, and must not change during a parse.
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
    /** Told to the members that it has then; one that is added later does not learn it. */
    void setDocumentId(int docId) override;

protected:
    ~AggregateConsumer() noexcept(false) override;
};

/** A counted reference to a list of consumers. */
typedef mem::RcoRef<AggregateConsumer> AggregateConsumerRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<xml::AggregateConsumer>;
extern template class DALNIM_API RcoRef<xml::AggregateConsumer>;

}

#endif
