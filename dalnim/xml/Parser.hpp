#ifndef DALNIM_XML_PARSER_HPP
#define DALNIM_XML_PARSER_HPP

#include <dalnim/String.hpp>
#include <dalnim/xml/Consumer.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::xml {

/**
 * Parses whole documents, one after the other, and tells a consumer what is in them. What it accepts
 * is the subset of nim_opbparse.h; text that is all whitespace is not delivered.
 *
 * One thread at a time uses a parser. After a failure, and after an exception of the consumer, the
 * next document is parsed as if nothing had happened.
 *
 * Both forms of parse() throw sys::system_error:
 * - 700012003 for a syntax error, with its offset in the text;
 * - 700012002 when the consumer asked to stop, 700012900 without memory, both with the text "Error to
 *   String function unimplemented";
 * - 700012005, the same text, from within a callback of the same parser: parse() is not reentrant.
 *
 * They take the identifier of the document, but only that of the first document is told to the
 * consumer.
 */
class DALNIM_API Parser
{
public:
    static constexpr const char CLASS_NAME[] = "Parser";

    /** Holds a reference to the consumer, which must not be null, for its life. */
    explicit Parser(ConsumerRef& consumerImpl);
    ~Parser();

    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    /** Parses the text up to its first NUL. */
    void parse(const String& doc, int docId = 0);
    /**
     * Reads a stream to its end, then parses. A NUL hides what follows it in the same 1,023 bytes. No
     * state of the stream but the end is looked at: one that has failed short of it is read forever.
     */
    void parse(std::istream& is, int docId = 0);

private:
    /** The PDS_PARSE_H, null until the first parse. */
    void* parserHandle;
    ConsumerRef consumer;
};

}

#endif
