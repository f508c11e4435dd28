#ifndef NIMHOST_PLUGINS_SERVICE_HPP
#define NIMHOST_PLUGINS_SERVICE_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <utility>
#include <vector>

/**
 * @file
 * What nimhost and its plug-ins have in common. A plug-in is a library that exports PLUGIN_ENTRY, with
 * the type PluginEntry: it makes the plug-in's object from the settings of its instance. The library
 * stays loaded until that object is gone.
 */

namespace nimhost {

/** A request as it stands in a document, for the plug-in to make sense of. */
struct ServiceCall
{
    typedef std::pair<com::kor::dal::nim::String, com::kor::dal::nim::String> NamedText;

    com::kor::dal::nim::String operation;
    /** The attributes of the request. */
    std::vector<NamedText> options;
    /** The elements in it, by name and text, in their order. */
    std::vector<NamedText> arguments;

    /** The text of the first of that name, null for none. */
    static const com::kor::dal::nim::String* find(const std::vector<NamedText>& texts, const char* name);
    /** The same; throws `std::invalid_argument` for none. */
    const com::kor::dal::nim::String& argument(const char* name) const;
};

inline const com::kor::dal::nim::String* ServiceCall::find(const std::vector<NamedText>& texts,
                                                           const char* name)
{
    for (const NamedText& text : texts) {
        if (text.first == name) {
            return &text.second;
        }
    }
    return nullptr;
}

inline const com::kor::dal::nim::String& ServiceCall::argument(const char* name) const
{
    const com::kor::dal::nim::String* const text = find(arguments, name);
    if (text == nullptr) {
        throw std::invalid_argument("the request has no " + com::kor::dal::nim::String(name));
    }
    return *text;
}

/** A plug-in that answers requests. Any number of threads may ask it at once. */
class Service : public virtual com::kor::dal::nim::mem::RefCntObject
{
public:
    /** The answer; a request that cannot be answered is an exception, whose text is the reason. */
    virtual com::kor::dal::nim::String perform(const ServiceCall& call) const = 0;
};

typedef com::kor::dal::nim::mem::RefCntObject* (*PluginEntry)(
    const com::kor::dal::nim::io::Properties& settings);

constexpr const char PLUGIN_ENTRY[] = "nimhost_plugin";

}

/** Declares the entry of a plug-in, for its body to follow; the argument is the name of a parameter. */
// NOLINTBEGIN(bugprone-macro-parentheses): which cannot stand in parentheses
#define NIMHOST_PLUGIN(settings)                                                                             \
    extern "C" __attribute__((visibility("default"))) ::com::kor::dal::nim::mem::RefCntObject*               \
    nimhost_plugin(const ::com::kor::dal::nim::io::Properties& settings)
// NOLINTEND(bugprone-macro-parentheses)

#endif
