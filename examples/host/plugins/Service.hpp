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
 * The interface between nimhost and its plug-ins. A plug-in is a library that exports a function PLUGIN_ENTRY
 * of type PluginEntry, which creates the plug-in's object from the settings of its instance. The library
 * remains loaded until that object has been destroyed.
 */

namespace nimhost {

/** A request as it is in the document; the plug-in interprets it. */
struct ServiceCall
{
    typedef std::pair<com::kor::dal::nim::String, com::kor::dal::nim::String> NamedText;

    com::kor::dal::nim::String operation;
    /** Attributes of the request. */
    std::vector<NamedText> options;
    /** Elements in the request, by name and text, in document order. */
    std::vector<NamedText> arguments;

    /** Returns the first text with a name, or null if there is none. */
    static const com::kor::dal::nim::String* find(const std::vector<NamedText>& texts, const char* name);
    /**
     * Returns the first argument with a name.
     * @throws std::invalid_argument if there is none
     */
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

/**
 * A plug-in that answers requests. Thread-safe: any number of threads may call it at the same time.
 *
 * Not hidden, so that host and plug-ins share its type information: libc++ compares types by its address.
 */
class __attribute__((visibility("default"))) Service : public virtual com::kor::dal::nim::mem::RefCntObject
{
public:
    /**
     * Returns the answer. Throws an exception with the reason as its message if the request cannot be
     * answered.
     */
    virtual com::kor::dal::nim::String perform(const ServiceCall& call) const = 0;
};

typedef com::kor::dal::nim::mem::RefCntObject* (*PluginEntry)(
    const com::kor::dal::nim::io::Properties& settings);

constexpr const char PLUGIN_ENTRY[] = "nimhost_plugin";

}

/** Declares the entry function of a plug-in; its body follows. `settings` is the name of the parameter. */
// NOLINTBEGIN(bugprone-macro-parentheses): a parameter name cannot be parenthesised
#define NIMHOST_PLUGIN(settings)                                                                             \
    extern "C" __attribute__((visibility("default"))) ::com::kor::dal::nim::mem::RefCntObject*               \
    nimhost_plugin(const ::com::kor::dal::nim::io::Properties& settings)
// NOLINTEND(bugprone-macro-parentheses)

#endif
