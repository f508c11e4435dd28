#ifndef DALNIM_LOG_MODULEREGISTRATION_HPP
#define DALNIM_LOG_MODULEREGISTRATION_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace com::kor::dal::nim::log {

class Module;

/**
 * A logger's registry of modules, and the filter that selects them.
 *
 * There are two lists. The actual list contains the registered modules. The requested list contains the
 * entries of the filter: names and patterns, whether or not a module matches them. If it is empty, there is
 * no filter.
 *
 * Thread safety: getUpdate(), isModuleRequested() and isModuleSelected() may be called by any thread at any
 * time; they use an immutable copy of the requested list. The caller serialises all other operations.
 */
class DALNIM_API ModuleRegistration
{
public:
    static constexpr const char CLASS_NAME[] = "ModuleRegistration";

    ModuleRegistration();
    /**
     * Deletes the modules that this registration owns. Does not access the others, which may have been
     * destroyed.
     */
    ~ModuleRegistration();

    ModuleRegistration(const ModuleRegistration&) = delete;
    ModuleRegistration& operator=(const ModuleRegistration&) = delete;

    /**
     * Returns the generation of the filter. It is incremented at each change of the requested list, and
     * wraps.
     */
    unsigned int getUpdate() const noexcept
    {
        return _update.load(std::memory_order_acquire);
    }
    /** Increments the generation, which invalidates the result of the filter that modules have cached. */
    void setUpdate() noexcept;

    /** Returns the entries of the filter, in order. */
    const std::list<String>& getModulesRequested() const noexcept;
    /** Returns the registered modules, in the order of registration. */
    const std::list<Module*>& getModulesActual() const noexcept;
    /**
     * Returns the names of the registered modules, in the same order. Does not access the modules, which may
     * have been destroyed.
     */
    std::vector<String> getNamesActual() const;

    /** Returns the first registered module with exactly this name, or null. */
    Module* getModuleActual(const String& name) const;
    /**
     * Appends a module, even if its name is in use. A module that getInstance() created for this
     * registration, and that was removed from it, is owned again. If memory runs out, nothing changes.
     */
    void addModulesActual(const Module& module);
    /**
     * Removes every entry of the module. The module is not destroyed; if this registration owned it, the
     * caller owns it afterwards.
     */
    void removeFromModulesActual(const Module& module);
    /**
     * Deletes a module that a registration owns, and sets `module` to null. Does nothing for any other
     * module. The lists do not change.
     */
    void removeModulesActual(Module*& module);
    /** Transfers ownership of a registered module to this registration. */
    void own(Module& module) noexcept;

    /**
     * Returns true if an entry of the filter matches: the name itself, "*", or the beginning of the name
     * followed by "*". Returns false for an empty name and for an empty filter.
     */
    bool isModuleRequested(const String& name) const;
    /** Returns true if a module with this name passes: there is no filter, or isModuleRequested(). */
    bool isModuleSelected(const String& name) const;
    /** Replaces all entries, unless they are the same. If memory runs out, nothing changes. */
    void setModulesRequested(std::list<String> names);
    /** Appends an entry, unless an equal one exists. */
    void addModulesRequested(const String& name);
    /**
     * Removes the first entry that matches `name` as in isModuleRequested(). An empty name removes all
     * entries.
     */
    void removeModulesRequested(const String& name);

private:
    typedef std::vector<String> Filter;

    /** A registered module. Holds all that may be read after the module has been destroyed. */
    struct Record
    {
        /** Position in _modulesActual, which contains the pointer. */
        std::list<Module*>::iterator entry;
        /** Position in the order of registration. */
        std::uint64_t number;
        /** Whether this registration owns the module. */
        bool owned;
    };
    /** Lists of records by the name at registration: none is empty, each is in the order of registration. */
    typedef std::unordered_map<String, std::list<Record>> Records;
    /** Where a record is. */
    struct Position
    {
        Records::value_type* name;
        std::list<Record>::iterator record;
    };
    /** Positions of the records by the address of their module. */
    typedef std::unordered_multimap<const Module*, Position> Index;

    /** Returns the result of `predicate` for the current filter, which is not deleted during the call. */
    template <class Predicate>
    bool readFilter(Predicate predicate) const;
    /** Replaces the filter and increments the generation. If memory runs out, nothing changes. */
    void publish(std::list<String> requested);

    std::atomic<unsigned int> _update;
    std::list<Module*> _modulesActual;
    std::list<String> _modulesRequested;

    Records _records;
    Index _index;
    /** `number` of the next record. */
    std::uint64_t _nextNumber;
    /** The current filter: an immutable copy of the requested list. */
    std::atomic<const Filter*> _filter;
    /** Number of threads that are reading a filter. */
    mutable std::atomic<unsigned int> _filterReaders;
    /** All filters that a thread may still be reading; the current one is the last. */
    std::vector<std::unique_ptr<const Filter>> _filters;
};

}

#endif
