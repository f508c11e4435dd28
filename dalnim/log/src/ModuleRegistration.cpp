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

ModuleRegistration::ModuleRegistration() : _update(0), _nextNumber(0), _filter(nullptr), _filterReaders(0)
{
    publish(std::list<String>());
}

ModuleRegistration::~ModuleRegistration()
{
    _modulesRequested.clear();
    // The other modules, and their code, may have been unloaded: only their addresses are valid.
    for (auto& [name, record] : _records) {
        if (record.owned) {
            removeModulesActual(*record.entry);
        }
    }
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

std::vector<String> ModuleRegistration::getNamesActual() const
{
    std::vector<Records::const_iterator> ordered;
    ordered.reserve(_records.size());
    for (auto record = _records.begin(); record != _records.end(); ++record) {
        ordered.push_back(record);
    }
    std::sort(ordered.begin(), ordered.end(),
              [](const auto& left, const auto& right) { return left->second.number < right->second.number; });
    std::vector<String> names;
    names.reserve(ordered.size());
    for (const auto& record : ordered) {
        names.push_back(record->first);
    }
    return names;
}

Module* ModuleRegistration::getModuleActual(const String& name) const
{
    // find() may return any of several records of one name.
    const auto first = _records.lower_bound(name);
    return first == _records.end() || first->first != name ? nullptr : *first->second.entry;
}

void ModuleRegistration::addModulesActual(const Module& module)
{
    std::list<Module*> entry(1, const_cast<Module*>(&module));
    const auto record =
        _records.emplace(module.getName(), Record{entry.begin(), _nextNumber, module.owner == this});
    try {
        _index.emplace(&module, record);
    } catch (...) {
        _records.erase(record);
        throw;
    }
    _modulesActual.splice(_modulesActual.end(), entry);
    ++_nextNumber;
}

void ModuleRegistration::removeFromModulesActual(const Module& module)
{
    const auto [first, last] = _index.equal_range(&module);
    for (auto entry = first; entry != last; ++entry) {
        _modulesActual.erase(entry->second->second.entry);
        _records.erase(entry->second);
    }
    _index.erase(first, last);
}

void ModuleRegistration::removeModulesActual(Module*& module)
{
    if (module != nullptr && module->owner != nullptr) {
        const auto [first, last] = _index.equal_range(module);
        for (auto entry = first; entry != last; ++entry) {
            entry->second->second.owned = false;
        }
        module->owner = nullptr;
        const std::unique_ptr<Module> deleted(module);
        module = nullptr;
    }
}

void ModuleRegistration::own(Module& module) noexcept
{
    module.owner = this;
    const auto [first, last] = _index.equal_range(&module);
    for (auto entry = first; entry != last; ++entry) {
        entry->second->second.owned = true;
    }
}

template <class Predicate>
bool ModuleRegistration::readFilter(Predicate predicate) const
{
    // The counter is incremented before the filter is loaded, and publish() loads the counter after it has
    // stored the new filter. All four operations are sequentially consistent. So a publisher that sees no
    // reader can delete every filter except the new one.
    _filterReaders.fetch_add(1);
    qv::perturb();
    const Filter* const filter = _filter.load();
    qv::perturb();
    const bool answer = predicate(*filter);
    _filterReaders.fetch_sub(1);
    return answer;
}

bool ModuleRegistration::isModuleRequested(const String& name) const
{
    return !name.empty()
           && readFilter([&name](const Filter& filter) { return findMatch(filter, name) != filter.end(); });
}

bool ModuleRegistration::isModuleSelected(const String& name) const
{
    return readFilter([&name](const Filter& filter) {
        return filter.empty() || (!name.empty() && findMatch(filter, name) != filter.end());
    });
}

void ModuleRegistration::setModulesRequested(std::list<String> names)
{
    if (names != _modulesRequested) {
        publish(std::move(names));
    }
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
    // The only step that may throw comes first, so that an exception changes nothing.
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
