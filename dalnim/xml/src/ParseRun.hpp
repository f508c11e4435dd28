#ifndef DALNIM_XML_SRC_PARSERUN_HPP
#define DALNIM_XML_SRC_PARSERUN_HPP

#include "AttributeNames.hpp"
#include "ParseControl.hpp"

#include <vector>

namespace com::kor::dal::nim::xml {

/**
 * One run of the state machine over the text of a control block, which it edits: what is delivered
 * is ended by a NUL in its place.
 *
 * Ahead of the position the text has no NUL but the one behind its end, since it arrived as
 * NUL-terminated pieces and only what is passed is edited.
 *
 * Every step returns PDS_PARSE_OK or the code that ends the parse, in which case the block's bError
 * is set. What a callback throws passes through.
 */
class ParseRun
{
public:
    ParseRun(iParseCB& control, int flags);

    int run();

private:
    /** What stands at the position. */
    enum State {
        ST_COMMENT,
        ST_TOP,
        ST_TAG_NAME,
        ST_TAG_OPEN,
        ST_TAG_EMPTY,
        ST_ATTRS,
        ST_END_TAG,
        ST_CONTENT,
        ST_CDATA
    };

    int step();
    int top();
    int tagName();
    int attribute();
    int tagOpen();
    int content();
    int text();
    int comment();
    int cdata();
    int endTag();

    int processingInstruction();
    int docType(char* behindOpening);
    int openPath();
    int nullAttribute();
    int noteAttribute(char* name, std::size_t length);
    int attributeValue();
    int growAttributes();
    int deliverStart();
    int deliverText(char* data);
    int deliverEnd();
    void closeElement();

    int checkCallback(int result);
    int fail(int code);
    int syntaxError(const char* message);
    State behindElement() const;
    char* path();

    iParseCB& cb;
    const bool skipsBlankText;
    const bool tellsNullAttribute;
    char* const begin;
    char* const end;
    /** The position. */
    char* p;
    /** The offset that an error names; it may lie behind the end. */
    std::size_t mark;
    State state;
    /** Where a comment or CDATA leads back to. */
    State resumed;
    bool hasRoot;
    /** The element that events are told for: in the text, or the tail of the path. */
    char* tag;
    std::size_t tagLength;
    /** Where the "/" stand in the path, so that a long path is not searched for each element. */
    std::vector<std::size_t> slashes;
    AttributeNames attributeNames;
};

}

#endif
