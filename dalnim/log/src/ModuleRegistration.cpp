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
    for (auto& [name, records] : _records) {
        for (Record& record : records) {
            if (record.owned) {
                removeModulesActual(*record.entry);
            }
        }
    }
}

void ModuleRegistration::setUpdate() noexcept
{
    // Releases the filter that publish() has stored to getUpdate(): a module that finds the new generation
    // reads that filter, or a later one.
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
    std::vector<std::pair<std::uint64_t, const String*>> ordered;
    ordered.reserve(_modulesActual.size());
    for (const auto& [name, records] : _records) {
        for (const Record& record : records) {
            ordered.emplace_back(record.number, &name);
        }
    }
    std::sort(ordered.begin(), ordered.end());
    std::vector<String> names;
    names.reserve(ordered.size());
    for (const auto& [number, name] : ordered) {
        names.push_back(*name);
    }
    return names;
}

Module* ModuleRegistration::getModuleActual(const String& name) const
{
    const auto found = _records.find(name);
    return found == _records.end() ? nullptr : *found->second.front().entry;
}

void ModuleRegistration::addModulesActual(const Module& module)
{
    std::list<Module*> entry(1, const_cast<Module*>(&module));
    std::list<Record> record(1, Record{entry.begin(), _nextNumber, module.owner == this});
    const auto name = _records.try_emplace(module.getName()).first;
    try {
        _index.emplace(&module, Position{&*name, record.begin()});
    } catch (...) {
        if (name->second.empty()) {
            _records.erase(name);
        }
        throw;
    }
    name->second.splice(name->second.end(), record);
    _modulesActual.splice(_modulesActual.end(), entry);
    ++_nextNumber;
}

void ModuleRegistration::removeFromModulesActual(const Module& module)
{
    const auto [first, last] = _index.equal_range(&module);
    for (auto position = first; position != last; ++position) {
        const auto [name, record] = position->second;
        _modulesActual.erase(record->entry);
        name->second.erase(record);
        if (name->second.empty()) {
            _records.erase(_records.find(name->first));
        }
    }
    _index.erase(first, last);
}

void ModuleRegistration::removeModulesActual(Module*& module)
{
    if (module != nullptr && module->owner != nullptr) {
        const auto [first, last] = _index.equal_range(module);
        for (auto position = first; position != last; ++position) {
            position->second.record->owned = false;
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
    for (auto position = first; position != last; ++position) {
        position->second.record->owned = true;
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
