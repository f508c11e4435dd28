#include <dalnim/dalbase.hpp>

#include <dalnim/xml/Parser.hpp>

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

/** The state of one parse() call, passed to the callbacks. Its strings are reused from event to event. */
struct Delivery
{
    explicit Delivery(const ConsumerRef& receiver) : consumer(receiver) {}

    /**
     * Appends an element to the path. The push parser passes a path of its own, but as a C string that would
     * have to be measured and copied for each event; with this copy, an event costs the same at any depth.
     */
    void openElement(const char* name)
    {
        tag = name;
        if (!path.empty()) {
            path += '/';
        }
        path += tag;
    }
    /** Removes the innermost element from the path. */
    void closeElement()
    {
        path.erase(path.size() - std::min(path.size(), tag.size() + 1));
    }

    /** Own reference: keeps the consumer alive during its callbacks. */
    ConsumerRef consumer;
    String tag;
    /** Names of the open elements, joined by "/". */
    String path;
    String data;
    Attributes attrs;
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

int processStartTag(void* context, char* tag, char*, std::size_t numAttributes, char** attributes)
{
    Delivery& delivery = deliveryOf(context);
    delivery.openElement(tag);
    delivery.attrs.resize(numAttributes / 2);
    for (std::size_t i = 0; i < numAttributes; i += 2) {
        if (attributes[i] == nullptr || attributes[i + 1] == nullptr) {
            throw std::runtime_error("NULL name or value found for attribute " + std::to_string(i / 2)
                                     + " of " + std::to_string(numAttributes / 2 - 1));
        }
        delivery.attrs[i / 2].name = attributes[i];
        delivery.attrs[i / 2].value = attributes[i + 1];
    }
    return toResult(delivery.consumer->elementBegin(delivery.tag, delivery.path, delivery.attrs));
}

int processEndTag(void* context, char* tag, char*)
{
    Delivery& delivery = deliveryOf(context);
    delivery.tag = tag;
    const bool proceed = delivery.consumer->elementEnd(delivery.tag, delivery.path);
    delivery.closeElement();
    return toResult(proceed);
}

int processData(void* context, int isCData, char* data, char*)
{
    Delivery& delivery = deliveryOf(context);
    const String& path = delivery.path;
    const std::size_t slash = path.rfind('/');
    delivery.tag.assign(path, slash == String::npos ? 0 : slash + 1, String::npos);
    delivery.data = data;
    return toResult(delivery.consumer->elementProcessData(delivery.tag, path, delivery.data, isCData == 1));
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
