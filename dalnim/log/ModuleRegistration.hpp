#ifndef DALNIM_LOG_MODULEREGISTRATION_HPP
#define DALNIM_LOG_MODULEREGISTRATION_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace com::kor::dal::nim::log {

class Module;

/**
 * A logger's registry of modules, and the filter that selects them.
 *
 * Two lists: the actual one holds the modules that exist; the requested one holds the names and
 * patterns that somebody asked for, whether or not a module matches them. An empty requested list
 * means that no filter is in force.
 *
 * What changes a list, and what reads the lists themselves, is serialised by the caller.
 * getUpdate(), isModuleRequested() and isModuleSelected() may be called by any thread meanwhile:
 * they work on an immutable copy of the requested list.
 */
class DALNIM_API ModuleRegistration
{
public:
    static constexpr const char CLASS_NAME[] = "ModuleRegistration";

    ModuleRegistration();
    /** Deletes the dynamic modules and forgets the others. */
    ~ModuleRegistration();

    ModuleRegistration(const ModuleRegistration&) = delete;
    ModuleRegistration& operator=(const ModuleRegistration&) = delete;

    /** The generation of the filter: it changes with the requested list, and wraps. */
    unsigned int getUpdate() const noexcept
    {
        return _update.load(std::memory_order_acquire);
    }
    /** Makes what modules know of the filter stale. */
    void setUpdate() noexcept;

    /** The entries of the filter, in their order. */
    const std::list<String>& getModulesRequested() const noexcept;
    /** The modules that exist, in the order in which they came. */
    const std::list<Module*>& getModulesActual() const noexcept;
    /** The names of the modules, in the same order. */
    const std::vector<String>& getNamesActual() const noexcept;

    /** The first registered module of that exact name, or null. */
    Module* getModuleActual(const String& name) const;
    /** Enters a module behind the others, also one whose name is taken. Without memory nothing is changed. */
    void addModulesActual(const Module& module);
    /** Forgets the module, which is not destroyed; a dynamic one is the caller's from then on. */
    void removeFromModulesActual(const Module& module);
    /** Deletes a dynamic module and sets `module` to null; leaves others alone. The list stays. */
    void removeModulesActual(Module*& module);
    /** Makes a registered module a dynamic one: it is deleted with this registration. */
    void own(Module& module);

    /**
     * Whether an entry of the filter matches: the exact name, "*", or a leading part of the name
     * followed by "*". False for an empty name and for an empty filter.
     */
    bool isModuleRequested(const String& name) const;
    /** Whether the module of that name passes: no filter is in force, or it is requested. */
    bool isModuleSelected(const String& name) const;
    /** Appends an entry, unless it is there already. */
    void addModulesRequested(const String& name);
    /**
     * Removes the first entry that matches `name`, be it by a pattern; nothing when none does. An
     * empty name removes all entries.
     */
    void removeModulesRequested(const String& name);

private:
    typedef std::vector<String> Filter;

    template <class Question>
    bool askFilter(Question question) const;
    /** Finds the next first module of a name whose first one was forgotten. */
    void reindex(const String& name) noexcept;
    /** Makes `requested` the filter, of the next generation. */
    void publish(std::list<String> requested);

    std::atomic<unsigned int> _update;
    std::list<Module*> _modulesActual;
    std::list<String> _modulesRequested;

    /** Copies, so that a look-up touches no module: at exit static ones go before their logger. */
    std::vector<String> _namesActual;
    /** The first module of each name. */
    std::unordered_map<String, Module*> _firstOfName;
    /** Modules to delete. Kept apart, since the others may be gone before this registration. */
    std::vector<const Module*> _modulesOwned;
    /** What the gates read: an immutable copy of the requested list. */
    std::atomic<const Filter*> _filter;
    /** How many gates read a filter just now. */
    mutable std::atomic<unsigned int> _filterReaders;
    /** Every filter that a gate may still read, the current one last. */
    std::vector<std::unique_ptr<const Filter>> _filters;
};

}

#endif
