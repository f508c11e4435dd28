#include "RequestConsumer.hpp"

#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;
using nim::xml::Attribute;
using nim::xml::Attributes;

namespace {

const char ROOT[] = "requests";
const char REQUEST[] = "requests/request";
const char RELOAD[] = "requests/reload";

bool standsInRequest(const String& tag, const String& fullTag)
{
    return fullTag == String(REQUEST) + '/' + tag;
}

/** The value of the attribute, which is taken out of the list. */
String takeAttribute(const String& tag, Attributes& attrs, const char* name)
{
    for (auto attribute = attrs.begin(); attribute != attrs.end(); ++attribute) {
        if (attribute->name == name) {
            const String value = attribute->value;
            attrs.erase(attribute);
            return value;
        }
    }
    throw std::invalid_argument("<" + tag + "> has no " + name);
}

}

bool RequestConsumer::elementBegin(const String& tag, const String& fullTag, const Attributes& attrs)
{
    Attributes left = attrs;
    if (fullTag == REQUEST) {
        DocumentRequest request{DocumentRequest::CALL, takeAttribute(tag, left, "plugin"), ServiceCall()};
        request.call.operation = takeAttribute(tag, left, "operation");
        for (const Attribute& option : left) {
            request.call.options.emplace_back(option.name, option.value);
        }
        requests.push_back(request);
    } else if (fullTag == RELOAD) {
        requests.push_back({DocumentRequest::RELOAD, takeAttribute(tag, left, "plugin"), ServiceCall()});
    } else if (standsInRequest(tag, fullTag)) {
        requests.back().call.arguments.emplace_back(tag, String());
    } else if (fullTag != ROOT) {
        throw std::invalid_argument("<" + tag + "> has no place at " + fullTag);
    }
    return true;
}

bool RequestConsumer::elementEnd(const String&, const String&)
{
    return true;
}

bool RequestConsumer::elementProcessData(const String& tag, const String& fullTag, const String& data, bool)
{
    if (!standsInRequest(tag, fullTag)) {
        throw std::invalid_argument("text has no place at " + fullTag);
    }
    // Text comes in pieces: around a comment, and beside CDATA.
    requests.back().call.arguments.back().second += data;
    return true;
}

}
