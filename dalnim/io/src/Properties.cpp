#include <dalnim/dalbase.hpp>

#include <dalnim/io/Properties.hpp>

#include <dalnim/io/src/PropertiesInserter.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/rtlapi/RX_AutoPtr_U.hpp>

#include <stdexcept>
#include <string_view>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::io {

namespace {

void requireKey(std::string_view key)
{
    if (key.empty()) {
        throw std::invalid_argument("empty key not allowed");
    }
}

}

Properties::Properties() = default;

Properties::Properties(const Properties& src, bool deep)
{
    const sys::StackTrack track("Properties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    src.addAllTo(*this, deep);
}

Properties::Properties(std::istream& is, bool keep_trailing_ws)
{
    const sys::StackTrack track("Properties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    load(is, keep_trailing_ws);
}

Properties::Properties(std::istream& is, String filepath, std::ostringstream& warnings,
                       std::ostringstream& notes, Severity sev, bool keep_trailing_ws)
{
    const sys::StackTrack track("Properties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    load(is, std::move(filepath), warnings, notes, sev, keep_trailing_ws);
}

Properties::~Properties() = default;

void Properties::addAllTo(Properties& dest, bool) const
{
    const sys::StackTrack track("addAllTo()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    // Deep in any case: the strings are built from bytes, and share nothing with those of this table.
    PropertiesInserter inserter(dest.data);
    for (const auto& [key, value] : data) {
        inserter.insert(key, value);
    }
}

bool Properties::containsKey(const String& key) const
{
    const sys::StackTrack track("containsKey()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return data.find(key) != data.end();
}

const String& Properties::getProperty(const String& key, const String& default_val) const
{
    const sys::StackTrack track("getProperty()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const auto found = data.find(key);
    return found == data.end() ? default_val : found->second;
}

const String& Properties::getProperty(const String& key) const
{
    return getProperty(key, EMPTY);
}

void Properties::setProperty(const String& key, const String& val)
{
    const sys::StackTrack track("setProperty()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    requireKey(key);
    data.insert_or_assign(key, val);
}

Properties* Properties::getProperties(const String& prefix, bool strip_prefix, bool) const
{
    const sys::StackTrack track("getProperties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    RX_AutoPtr_U<Properties> result(new Properties());
    addSelectionTo(*result, prefix, strip_prefix);
    return result.release();
}

Properties* Properties::getProperties(const String** prefixes, unsigned int num_prefixes, bool strip_prefix,
                                      bool) const
{
    const sys::StackTrack track("getProperties()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (num_prefixes != 0 && prefixes == nullptr) {
        throw std::invalid_argument("null prefix list not allowed");
    }
    RX_AutoPtr_U<Properties> result(new Properties());
    for (unsigned int i = 0; i < num_prefixes; ++i) {
        if (prefixes[i] == nullptr) {
            throw std::invalid_argument("null prefix not allowed");
        }
        addSelectionTo(*result, *prefixes[i], strip_prefix);
    }
    return result.release();
}

void Properties::addSelectionTo(Properties& dest, const String& prefix, bool strip_prefix) const
{
    // The keys that begin with the prefix are adjacent, and the first one is not less than the prefix.
    const auto matches = [&prefix](const String& key) { return key.compare(0, prefix.size(), prefix) == 0; };

    const std::size_t stripped = strip_prefix ? prefix.size() : 0;
    PropertiesInserter inserter(dest.data);
    for (auto it = data.lower_bound(prefix); it != data.end() && matches(it->first); ++it) {
        const std::string_view key = std::string_view(it->first).substr(stripped);
        requireKey(key);
        inserter.insert(key, it->second);
    }
}

}
