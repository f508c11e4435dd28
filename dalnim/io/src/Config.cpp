#include <dalnim/dalbase.hpp>

#include <dalnim/io/Config.hpp>

#include <dalnim/sys/StackTrack.hpp>

namespace com::kor::dal::nim::io {

Config::Config() : STR_TRUE(VAL_TRUE), STR_FALSE(VAL_FALSE) {}

Config::Config(const Config& r) = default;

Config::~Config() = default;

Properties* Config::getDefaultedProperties(const Properties& source, const String& specific_id,
                                           bool deep_copy)
{
    const sys::StackTrack track("getDefaultedProperties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const String wildcard = "*/";
    const String global = wildcard.substr(1);
    const String specific = specific_id + "/";

    // Later prefixes take precedence.
    const String* prefixes[] = {&global, &wildcard, &specific};
    return source.getProperties(prefixes, 3, true, deep_copy);
}

}
