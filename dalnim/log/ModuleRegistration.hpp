#ifndef DALNIM_LOG_MODULEREGISTRATION_HPP
#define DALNIM_LOG_MODULEREGISTRATION_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
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
    /** Returns the names of the modules, in the same order. Calls no module: one may be destroyed already. */
    std::vector<String> getNamesActual() const;

    /** The first registered module of that exact name, or null. */
    Module* getModuleActual(const String& name) const;
    /**
     * Appends a module, even if its name is taken. A dynamic module that was made for this registration, and
     * was removed from it, is owned again. If memory runs out, nothing changes.
     */
    void addModulesActual(const Module& module);
    /**
     * Removes every entry of the module. The module is not destroyed; a dynamic one is owned by the caller
     * afterwards.
     */
    void removeFromModulesActual(const Module& module);
    /** Deletes a dynamic module and sets `module` to null; leaves others alone. The list stays. */
    void removeModulesActual(Module*& module);
    /** Makes a registered module a dynamic one: it is deleted with this registration. */
    void own(Module& module) noexcept;

    /**
     * Whether an entry of the filter matches: the exact name, "*", or a leading part of the name
     * followed by "*". False for an empty name and for an empty filter.
     */
    bool isModuleRequested(const String& name) const;
    /** Whether the module of that name passes: no filter is in force, or it is requested. */
    bool isModuleSelected(const String& name) const;
    /** Replaces all entries; does nothing if they are the same. If memory runs out, nothing changes. */
    void setModulesRequested(std::list<String> names);
    /** Appends an entry, unless it is there already. */
    void addModulesRequested(const String& name);
    /**
     * Removes the first entry that matches `name`, be it by a pattern; nothing when none does. An
     * empty name removes all entries.
     */
    void removeModulesRequested(const String& name);

private:
    typedef std::vector<String> Filter;

    /** An entry of the actual list. It is all that may be read of a module that may be destroyed already. */
    struct Record
    {
        /** Position in _modulesActual, which holds the pointer. */
        std::list<Module*>::iterator entry;
        /** Ascending in the order of registration. */
        std::uint64_t number;
        /** Whether the module is deleted with this registration. */
        bool owned;
    };
    /** By the name at registration; records of one name are in the order of registration. */
    typedef std::multimap<String, Record> Records;
    /** Records by the address of their module. */
    typedef std::unordered_multimap<const Module*, Records::iterator> Index;

    template <class Predicate>
    bool readFilter(Predicate predicate) const;
    /** Makes `requested` the filter, of the next generation. */
    void publish(std::list<String> requested);

    std::atomic<unsigned int> _update;
    std::list<Module*> _modulesActual;
    std::list<String> _modulesRequested;

    Records _records;
    Index _index;
    /** The number of the next record. */
    std::uint64_t _nextNumber;
    /** What the gates read: an immutable copy of the requested list. */
    std::atomic<const Filter*> _filter;
    /** How many gates read a filter just now. */
    mutable std::atomic<unsigned int> _filterReaders;
    /** Every filter that a gate may still read, the current one last. */
    std::vector<std::unique_ptr<const Filter>> _filters;
};

}

#endif
