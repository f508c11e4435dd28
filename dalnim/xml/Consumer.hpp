#ifndef DALNIM_XML_CONSUMER_HPP
#define DALNIM_XML_CONSUMER_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/xml/Attribute.hpp>

namespace com::kor::dal::nim::xml {

/**
 * Receives the events of a Parser. Reference-counted.
 *
 * Events: each operation is called on the thread that called Parser::parse(). If it returns false, the parse
 * stops; if it throws, the exception propagates to the caller of parse(). It may use another Parser, but not
 * the one that calls it.
 *
 * Arguments: `tag` is the name of the element; `fullTag` contains the names from the root to that element,
 * joined by "/". All arguments are owned by the parser and valid only during the call.
 */
class DALNIM_API Consumer : public virtual mem::RefCntObject
{
protected:
    Consumer() noexcept;
    /** Copies the document identifier. The reference count of the copy starts at zero. */
    Consumer(const Consumer&) = default;
    /** Copies the document identifier. The reference counts do not change. */
    Consumer& operator=(const Consumer&) = default;
    ~Consumer() noexcept(false) override;

public:
    static constexpr const char CLASS_NAME[] = "Consumer";

    /**
     * Called for each start tag.
     * @param attrs the attributes, in document order
     * @return true to continue, false to stop the parse
     */
    virtual bool elementBegin(const String& tag, const String& fullTag, const Attributes& attrs) = 0;
    /**
     * Called for each end tag and each empty-element tag. `fullTag` still includes the element.
     * @return true to continue, false to stop the parse
     */
    virtual bool elementEnd(const String& tag, const String& fullTag) = 0;
    /**
     * Called for each run of text between two pieces of markup, and for each CDATA section.
     * @param tag     the element that contains the text
     * @param data    text with references expanded, or the content of the CDATA section, verbatim
     * @param isCData true for a CDATA section
     * @return true to continue, false to stop the parse
     */
    virtual bool elementProcessData(const String& tag, const String& fullTag, const String& data,
                                    bool isCData) = 0;
    /** Stores the document identifier. A Parser calls it before its first document only. */
    virtual void setDocumentId(int docId);

    /** Returns the identifier passed to setDocumentId(), or 0 before the first call. */
    int getDocumentId() const noexcept
    {
        return documentId;
    }

protected:
    /** Document identifier; 0 before the first setDocumentId(). */
    int documentId;
};

/** A reference-counting pointer to a Consumer. */
typedef mem::RcoRef<Consumer> ConsumerRef;

}

namespace com::kor::dal::nim::mem {

extern template class DALNIM_API ConstRcoRef<xml::Consumer>;
extern template class DALNIM_API RcoRef<xml::Consumer>;

}

#endif
