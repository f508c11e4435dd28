#include <dalnim/dalbase.hpp>

#include <dalnim/log/ModuleRegistration.hpp>

#include <dalnim/log/Module.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace com::kor::dal::nim::log {

namespace {

constexpr char WILDCARD[] = "*";

bool matches(const String& entry, const String& name)
{
    if (entry == name || entry == WILDCARD) {
        return true;
    }
    if (entry.empty() || entry.back() != WILDCARD[0]) {
        return false;
    }
    return name.compare(0, entry.size() - 1, entry, 0, entry.size() - 1) == 0;
}

template <class Entries>
auto findMatch(const Entries& entries, const String& name)
{
    return std::find_if(entries.begin(), entries.end(),
                        [&name](const String& entry) { return matches(entry, name); });
}

}

ModuleRegistration::ModuleRegistration() : _update(0), _filter(nullptr), _filterReaders(0)
{
    publish(std::list<String>());
}

ModuleRegistration::~ModuleRegistration()
{
    _modulesRequested.clear();
    // Of the others only the address is known: they may be gone, and their code with them.
    for (Module*& module : _modulesActual) {
        if (std::find(_modulesOwned.begin(), _modulesOwned.end(), module) != _modulesOwned.end()) {
            removeModulesActual(module);
        }
    }
    _modulesActual.clear();
    _namesActual.clear();
    _firstOfName.clear();
}

void ModuleRegistration::setUpdate() noexcept
{
    _update.fetch_add(1, std::memory_order_release);
}

const std::list<String>& ModuleRegistration::getModulesRequested() const noexcept
{
    return _modulesRequested;
}

const std::list<Module*>& ModuleRegistration::getModulesActual() const noexcept
{
    return _modulesActual;
}

const std::vector<String>& ModuleRegistration::getNamesActual() const noexcept
{
    return _namesActual;
}

Module* ModuleRegistration::getModuleActual(const String& name) const
{
    const auto found = _firstOfName.find(name);
    return found == _firstOfName.end() ? nullptr : found->second;
}

void ModuleRegistration::addModulesActual(const Module& module)
{
    auto* const added = const_cast<Module*>(&module);
    _namesActual.push_back(module.getName());
    try {
        std::list<Module*> entry(1, added);
        _firstOfName.emplace(module.getName(), added);
        _modulesActual.splice(_modulesActual.end(), entry);
    } catch (...) {
        _namesActual.pop_back();
        throw;
    }
}

void ModuleRegistration::removeFromModulesActual(const Module& module)
{
    auto name = _namesActual.begin();
    for (auto entry = _modulesActual.begin(); entry != _modulesActual.end();) {
        if (*entry == &module) {
            const String forgotten = std::move(*name);
            entry = _modulesActual.erase(entry);
            name = _namesActual.erase(name);
            reindex(forgotten);
        } else {
            ++entry;
            ++name;
        }
    }
    _modulesOwned.erase(std::remove(_modulesOwned.begin(), _modulesOwned.end(), &module),
                        _modulesOwned.end());
}

void ModuleRegistration::reindex(const String& name) noexcept
{
    const auto found = std::find(_namesActual.begin(), _namesActual.end(), name);
    if (found == _namesActual.end()) {
        _firstOfName.erase(name);
    } else {
        _firstOfName.find(name)->second = *std::next(_modulesActual.begin(), found - _namesActual.begin());
    }
}

void ModuleRegistration::removeModulesActual(Module*& module)
{
    if (module != nullptr && module->isDynamic) {
        module->isDynamic = false;
        _modulesOwned.erase(std::remove(_modulesOwned.begin(), _modulesOwned.end(), module),
                            _modulesOwned.end());
        const std::unique_ptr<Module> owner(module);
        module = nullptr;
    }
}

void ModuleRegistration::own(Module& module)
{
    try {
        _modulesOwned.push_back(&module);
    } catch (...) {
        removeFromModulesActual(module);
        throw;
    }
    module.isDynamic = true;
}

template <class Question>
bool ModuleRegistration::askFilter(Question question) const
{
    // The count is raised before the filter is looked up, and publish() looks at the count
    // behind its exchange of the filter, all in the one order of sequential consistency. So a
    // publisher that sees no reader can free every filter but the new one.
    _filterReaders.fetch_add(1);
    qv::perturb();
    const Filter* const filter = _filter.load();
    qv::perturb();
    const bool answer = question(*filter);
    _filterReaders.fetch_sub(1);
    return answer;
}

bool ModuleRegistration::isModuleRequested(const String& name) const
{
    return !name.empty()
           && askFilter([&name](const Filter& filter) { return findMatch(filter, name) != filter.end(); });
}

bool ModuleRegistration::isModuleSelected(const String& name) const
{
    return askFilter([&name](const Filter& filter) {
        return filter.empty() || (!name.empty() && findMatch(filter, name) != filter.end());
    });
}

void ModuleRegistration::addModulesRequested(const String& name)
{
    if (std::find(_modulesRequested.begin(), _modulesRequested.end(), name) != _modulesRequested.end()) {
        return;
    }
    std::list<String> requested(_modulesRequested);
    requested.push_back(name);
    publish(std::move(requested));
}

void ModuleRegistration::removeModulesRequested(const String& name)
{
    if (name.empty() || _modulesRequested.empty()) {
        publish(std::list<String>());
        return;
    }
    const auto entry = findMatch(_modulesRequested, name);
    if (entry != _modulesRequested.end()) {
        std::list<String> requested(_modulesRequested.cbegin(), entry);
        requested.insert(requested.end(), std::next(entry), _modulesRequested.cend());
        publish(std::move(requested));
    }
}

void ModuleRegistration::publish(std::list<String> requested)
{
    // Whatever can fail comes first, so that a failure changes nothing.
    _filters.push_back(std::make_unique<const Filter>(requested.begin(), requested.end()));
    _modulesRequested.swap(requested);
    _filter.store(_filters.back().get());
    qv::perturb();
    setUpdate();
    if (_filterReaders.load() == 0) {
        _filters.erase(_filters.begin(), _filters.end() - 1);
    }
}

}
