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

/**
 * One parse on its way to the consumer: the context of the adapters. Its strings keep their memory
 * from one event to the next.
 */
struct Delivery
{
    explicit Delivery(const ConsumerRef& receiver) : consumer(receiver) {}

    /**
     * An element starts, and ends. The path is kept here as it is in the parser, whose text would have
     * to be measured and copied: so an event costs the same at any depth.
     */
    void enter(const char* name)
    {
        tag = name;
        if (!path.empty()) {
            path += '/';
        }
        path += tag;
    }
    void leave()
    {
        path.erase(path.size() - std::min(path.size(), tag.size() + 1));
    }

    /** Of its own, so that the consumer lives through its calls. */
    ConsumerRef consumer;
    String tag;
    /** The names of the open elements, joined by "/". */
    String path;
    String data;
    Attributes attrs;
};

Delivery& deliveryOf(void* context)
{
    return *static_cast<Delivery*>(context);
}

int answer(bool goOn)
{
    return goOn ? 0 : 1;
}

extern "C" {

int processStartTag(void* context, char* tag, char*, std::size_t numAttributes, char** attributes)
{
    Delivery& delivery = deliveryOf(context);
    delivery.enter(tag);
    delivery.attrs.resize(numAttributes / 2);
    for (std::size_t i = 0; i < numAttributes; i += 2) {
        if (attributes[i] == nullptr || attributes[i + 1] == nullptr) {
            throw std::runtime_error("NULL name or value found for attribute " + std::to_string(i / 2)
                                     + " of " + std::to_string(numAttributes / 2 - 1));
        }
        delivery.attrs[i / 2].name = attributes[i];
        delivery.attrs[i / 2].value = attributes[i + 1];
    }
    return answer(delivery.consumer->elementBegin(delivery.tag, delivery.path, delivery.attrs));
}

int processEndTag(void* context, char* tag, char*)
{
    Delivery& delivery = deliveryOf(context);
    delivery.tag = tag;
    const bool goesOn = delivery.consumer->elementEnd(delivery.tag, delivery.path);
    delivery.leave();
    return answer(goesOn);
}

int processData(void* context, int isCData, char* data, char*)
{
    Delivery& delivery = deliveryOf(context);
    const String& path = delivery.path;
    const std::size_t slash = path.rfind('/');
    delivery.tag.assign(path, slash == String::npos ? 0 : slash + 1, String::npos);
    delivery.data = data;
    return answer(delivery.consumer->elementProcessData(delivery.tag, path, delivery.data, isCData == 1));
}
}

/** Turns a failure of the plain functions into an exception; a missing handle is one, too. */
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
    // The text is only read, for all that the plain function does not say so.
    code = nim_pdsParseBuffer(const_cast<char*>(doc.c_str()), PDS_PARSE_F_LAST | PDS_PARSE_F_SKIP_WS,
                              parserHandle);
    checkPdsReturn(code, parserHandle);
}

void Parser::parse(std::istream& is, int docId)
{
    const sys::StackTrack track("parse()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    String doc;
    char piece[1024];
    while (!is.eof()) {
        std::memset(piece, 0, sizeof piece);
        is.read(piece, sizeof piece - 1);
        doc += piece;
    }
    parse(doc, docId);
}

}
