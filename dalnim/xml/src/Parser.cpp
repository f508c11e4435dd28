#include <dalnim/dalbase.hpp>

#include <dalnim/xml/Parser.hpp>

#include "ElementPath.hpp"
#include "ParseControl.hpp"

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/nim_opbparse.h>
#include <dalnim/xml/nsdefs.hpp>

#include <algorithm>
#include <cstring>
#include <istream>
#include <stdexcept>

namespace com::kor::dal::nim::xml {

namespace {

/** Assigns `length` bytes. Faster than String::assign() if the length does not grow. */
inline void assignText(String& target, const char* text, std::size_t length)
{
    if (length > target.size()) {
        target.assign(text, length);
    } else {
        target.erase(length);
        std::memcpy(target.data(), text, length);
    }
}

/**
 * The state of one parse() call, passed to the callbacks. Its strings are reused from event to event, and the
 * push parser's lengths are used, so that no string is measured.
 */
class Delivery
{
public:
    explicit Delivery(const ConsumerRef& receiver) : consumer(receiver), control(nullptr) {}

    /** Must be called before the parse. */
    void setControl(const iParseCB& parserControl)
    {
        control = &parserControl;
    }

    bool start(std::size_t count, char** attributes)
    {
        const ElementPath& elements = *control->pElements;
        // Appends the "/" and the name.
        path.append(elements.text() + path.size(), elements.textLength() - path.size());
        String& tag = tags[level()];
        assignText(tag, elements.tag(), elements.tagLength());
        return consumer->elementBegin(tag, path, fillAttributes(count, attributes));
    }

    bool end()
    {
        const bool proceed = consumer->elementEnd(currentTag(), path);
        path.erase(path.size() - std::min(path.size(), control->pElements->tagLength() + 1));
        return proceed;
    }

    bool text(const char* text, bool isCData)
    {
        assignText(data, text, control->nDataLength);
        return consumer->elementProcessData(currentTag(), path, data, isCData);
    }

private:
    /** Number of levels that have a string of their own for the name. Deeper levels share one. */
    static constexpr std::size_t LEVELS = 8;
    /** Number of attributes from which elements share one list. */
    static constexpr std::size_t SHARED_LIST = 8;

    /** Returns the index of the innermost element in `tags`. */
    std::size_t level() const
    {
        return std::min(static_cast<std::size_t>(control->nTagDepth) - 1, LEVELS);
    }

    /** Returns the current name. */
    const String& currentTag()
    {
        const ElementPath& elements = *control->pElements;
        if (level() == LEVELS || elements.hasPartialEndTag()) {
            assignText(tags[LEVELS], elements.tag(), elements.tagLength());
            return tags[LEVELS];
        }
        return tags[level()];
    }

    const Attributes& fillAttributes(std::size_t entries, char** attributes)
    {
        const std::size_t count = entries / 2;
        Attributes& list = lists[std::min(count, SHARED_LIST)];
        if (list.size() != count) {
            list.resize(count);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const char* const name = attributes[2 * i];
            const char* const value = attributes[2 * i + 1];
            if (name == nullptr || value == nullptr) {
                throw std::runtime_error("NULL name or value found for attribute " + std::to_string(i)
                                         + " of " + std::to_string(count - 1));
            }
            // Between the name and the value, the document contains only "=" and a quote.
            assignText(list[i].name, name, static_cast<std::size_t>(value - name) - 2);
            assignText(list[i].value, value, control->pValueLengths[i]);
        }
        return list;
    }

    /** Own reference: keeps the consumer alive during its callbacks. */
    ConsumerRef consumer;
    const iParseCB* control;
    /** Names of the open elements by level. The last is that of all deeper levels. */
    String tags[LEVELS + 1];
    /** Names of the open elements, joined by "/". */
    String path;
    String data;
    /** Attributes by their number, so that no list is resized. */
    Attributes lists[SHARED_LIST + 1];
};

Delivery& deliveryOf(void* context)
{
    return *static_cast<Delivery*>(context);
}

int toResult(bool proceed)
{
    return proceed ? 0 : 1;
}

extern "C" {

int processStartTag(void* context, char*, char*, std::size_t numAttributes, char** attributes)
{
    return toResult(deliveryOf(context).start(numAttributes, attributes));
}

int processEndTag(void* context, char*, char*)
{
    return toResult(deliveryOf(context).end());
}

int processData(void* context, int isCData, char* data, char*)
{
    return toResult(deliveryOf(context).text(data, isCData == 1));
}
}

/** Throws sys::system_error with the code and its message if `errorCode` is not 0 or the handle is null. */
void checkPdsReturn(int errorCode, PDS_PARSE_H handle)
{
    char buffer[256];
    const char* message = nullptr;
    if (errorCode == PDS_PARSE_E_SYNTAX && handle != nullptr) {
        message = nim_pdsParseGetErrorInfo(handle);
    } else if (errorCode != PDS_PARSE_OK) {
        message = nim_pdsErrorToString(errorCode, buffer, sizeof buffer);
    } else if (handle != nullptr) {
        return;
    } else {
        message = "PDS Parser Handle is NULL";
    }
    throw sys::system_error(errorCode, message);
}

}

Parser::Parser(ConsumerRef& consumerImpl) : parserHandle(nullptr), consumer(consumerImpl) {}

Parser::~Parser()
{
    if (parserHandle != nullptr) {
        nim_pdsParseDestroy(&parserHandle);
    }
}

void Parser::parse(const String& doc, int docId)
{
    const sys::StackTrack track("parse()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    Delivery delivery(consumer);
    int code = PDS_PARSE_OK;
    if (parserHandle == nullptr) {
        consumer->setDocumentId(docId);
        code = nim_pdsParseInit(0, &delivery, processStartTag, processEndTag, processData, nullptr, nullptr,
                                &parserHandle);
    } else {
        code = nim_pdsParseReset(0, &delivery, parserHandle);
    }
    checkPdsReturn(code, parserHandle);
    delivery.setControl(*static_cast<const iParseCB*>(parserHandle));
    // nim_pdsParseBuffer() only reads the string, although its parameter is not const.
    code = nim_pdsParseBuffer(const_cast<char*>(doc.c_str()), PDS_PARSE_F_LAST | PDS_PARSE_F_SKIP_WS,
                              parserHandle);
    checkPdsReturn(code, parserHandle);
}

void Parser::parse(std::istream& is, int docId)
{
    const sys::StackTrack track("parse()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    String doc;
    char chunk[1024];
    while (!is.eof()) {
        std::memset(chunk, 0, sizeof chunk);
        is.read(chunk, sizeof chunk - 1);
        doc += chunk;
    }
    parse(doc, docId);
}

}
