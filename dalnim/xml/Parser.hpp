#ifndef DALNIM_XML_PARSER_HPP
#define DALNIM_XML_PARSER_HPP

#include <dalnim/String.hpp>
#include <dalnim/xml/Consumer.hpp>

#include <iosfwd>

namespace com::kor::dal::nim::xml {

/**
 * Parses complete documents, one at a time, and passes their events to a Consumer.
 *
 * Accepts the XML subset that nim_opbparse.h describes. Text that consists of white space is not reported.
 *
 * Errors: after a failed parse, or an exception from the consumer, the parser can be used for the next
 * document.
 *
 * Document identifier: compatibility: only the identifier of the first document is passed to the consumer.
 *
 * Thread safety: one thread at a time. parse() is not reentrant.
 */
class DALNIM_API Parser
{
public:
    static constexpr const char CLASS_NAME[] = "Parser";

    /**
     * Creates a parser for a consumer. Allocates nothing until the first parse.
     * @param consumerImpl the consumer, not null; the parser holds a reference to it
     */
    explicit Parser(ConsumerRef& consumerImpl);
    ~Parser();

    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    /**
     * Parses a document.
     * @param doc   the document, which ends at its first NUL
     * @param docId identifier of the document; ignored after the first call
     * @throws sys::system_error
     * - 700012003 (`PDS_PARSE_E_SYNTAX`): syntax error; the message contains its offset in bytes
     * - 700012002 (`PDS_PARSE_E_CALLBACK`): the consumer returned false
     * - 700012005 (`PDS_PARSE_E_DONE`): called from within a callback of the same parser
     * - 700012900 (`PDS_PARSE_E_NO_MEMORY`): out of memory
     *
     * The message of the last three is "Error to String function unimplemented". Exceptions from the consumer
     * propagate unchanged.
     */
    void parse(const String& doc, int docId = 0);
    /**
     * Reads a stream to its end, then parses the document.
     * @param is    read in blocks of 1,023 bytes; a NUL discards the rest of its block. Only `eof()` is
     * checked: if the stream fails before its end, the call never returns
     * @param docId identifier of the document; ignored after the first call
     * @throws sys::system_error as the other form
     */
    void parse(std::istream& is, int docId = 0);

private:
    /** The owned PDS_PARSE_H; null until the first parse. */
    void* parserHandle;
    ConsumerRef consumer;
};

}

#endif
