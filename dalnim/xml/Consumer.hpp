#ifndef DALNIM_XML_CONSUMER_HPP
#define DALNIM_XML_CONSUMER_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/xml/Attribute.hpp>

namespace com::kor::dal::nim::xml {

/**
 * Receives the events of a Parser, on the thread that parses. It lives by its references.
 *
 * `tag` is the name of an element, `fullTag` the names from the root to it, joined by "/"; both, as
 * all that is told, belong to the parser and are valid during the call only. A result of true asks to
 * go on, false stops the parse. What an operation throws reaches the caller of the parse. It may parse
 * on another Parser, but not on the one that calls it.
 */
class DALNIM_API Consumer : public virtual mem::RefCntObject
{
protected:
    Consumer() noexcept;
    /** A copy has no references of its own, and the same document. */
    Consumer(const Consumer&) = default;
    /** Takes over the document; who holds this consumer is not disturbed. */
    Consumer& operator=(const Consumer&) = default;
    ~Consumer() noexcept(false) override;

public:
    static constexpr const char CLASS_NAME[] = "Consumer";

    /** @param attrs in the order of the document */
    virtual bool elementBegin(const String& tag, const String& fullTag, const Attributes& attrs) = 0;
    /** The end of an element, also of one that is a tag alone; `fullTag` still has it. */
    virtual bool elementEnd(const String& tag, const String& fullTag) = 0;
    /**
     * Text between two pieces of markup, its symbols expanded, or a CDATA section as it stands.
     * @param tag the element that the text stands in
     */
    virtual bool elementProcessData(const String& tag, const String& fullTag, const String& data,
                                    bool isCData) = 0;
    /** Told by a Parser ahead of its first document only. */
    virtual void setDocumentId(int docId);

    /** The identifier of the document in progress; 0 before the first. */
    int getDocumentId() const noexcept
    {
        return documentId;
    }

protected:
    /** What setDocumentId() was told last; 0 before. */
    int documentId;
};

/** A counted reference to a consumer. */
typedef mem::RcoRef<Consumer> ConsumerRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<xml::Consumer>;
extern template class DALNIM_API RcoRef<xml::Consumer>;

}

#endif
