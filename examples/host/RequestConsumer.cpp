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

bool isRequestArgument(const String& tag, const String& fullTag)
{
    return fullTag == String(REQUEST) + '/' + tag;
}

/** Removes an attribute from the list and returns its value. */
String extractAttribute(const String& tag, Attributes& attrs, const char* name)
{
    for (auto attribute = attrs.begin(); attribute != attrs.end(); ++attribute) {
        if (attribute->name == name) {
            const String value = attribute->value;
            attrs.erase(attribute);
            return value;
        }
    }
    throw std::invalid_argument("<" + tag + "> has no attribute " + name);
}

}

bool RequestConsumer::elementBegin(const String& tag, const String& fullTag, const Attributes& attrs)
{
    Attributes left = attrs;
    if (fullTag == REQUEST) {
        DocumentRequest request{DocumentRequest::CALL, extractAttribute(tag, left, "plugin"), ServiceCall()};
        request.call.operation = extractAttribute(tag, left, "operation");
        for (const Attribute& option : left) {
            request.call.options.emplace_back(option.name, option.value);
        }
        requests.push_back(request);
    } else if (fullTag == RELOAD) {
        requests.push_back({DocumentRequest::RELOAD, extractAttribute(tag, left, "plugin"), ServiceCall()});
    } else if (isRequestArgument(tag, fullTag)) {
        requests.back().call.arguments.emplace_back(tag, String());
    } else if (fullTag != ROOT) {
        throw std::invalid_argument("<" + tag + "> is not allowed at " + fullTag);
    }
    return true;
}

bool RequestConsumer::elementEnd(const String&, const String&)
{
    return true;
}

bool RequestConsumer::elementProcessData(const String& tag, const String& fullTag, const String& data, bool)
{
    if (!isRequestArgument(tag, fullTag)) {
        throw std::invalid_argument("text is not allowed at " + fullTag);
    }
    // Text is reported in several events if it contains comments or CDATA sections.
    requests.back().call.arguments.back().second += data;
    return true;
}

}
