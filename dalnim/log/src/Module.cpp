#include <dalnim/dalbase.hpp>

#include <dalnim/log/Module.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Log.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <dalnim/log/src/StatementScope.hpp>

#include <memory>
#include <new>
#include <stdexcept>
#include <typeinfo>

namespace com::kor::dal::nim::log {

const char Module::DEFAULT_NAME[] = "global";

namespace {

/** The gate of modules whose logger does not decide by a gate. */
const SeverityGate OPEN_GATE;
/**
 * The gate of modules before their first check. Open, so that the check reaches isSelected(), which binds the
 * module.
 */
const SeverityGate UNBOUND_GATE;

}

const SeverityGate& Module::bindGate() noexcept
{
    const SeverityGate* const own = gateOf(logger);
    const SeverityGate& gate = own != nullptr ? *own : OPEN_GATE;
    // Threads that bind the module concurrently store the same value. Relaxed, also where it is loaded: the
    // gate is a part of the logger, which is completely constructed before any thread calls the check.
    loggerGate.store(&gate, std::memory_order_relaxed);
    return gate;
}

Module::Module(const String& name, Log& logInst)
    : filterState(NEVER_COMPUTED), owner(nullptr), modName(name), logger(logInst), loggerGate(&UNBOUND_GATE)
{
    logger.moduleRegistrar().addModulesActual(*this);
}

// Accesses only the name, so a module and its logger may be destroyed in either order.
Module::~Module() = default;

Module& Module::getInstance(const String& name, Log& logInst)
{
    ModuleRegistration& registrar = logInst.moduleRegistrar();
    if (Module* const known = registrar.getModuleActual(name)) {
        return *known;
    }
    std::unique_ptr<Module> created(new Module(name, logInst));
    registrar.own(*created);
    return *created.release();
}

bool Module::isRefused() noexcept
{
    if (!StatementScope::isInterrupted()) {
        return false;
    }
    countRefused(logger);
    return true;
}

bool Module::isSelected(Severity codedSeverity)
{
    if (__builtin_expect(StatementScope::isActive(), false) && isRefused()) {
        return false;
    }
    const SeverityGate* gate = loggerGate.load(std::memory_order_relaxed);
    if (gate == &UNBOUND_GATE) {
        gate = &bindGate();
        if (!gate->passes(codedSeverity)) {
            return false;
        }
    }
    if (gate == &OPEN_GATE && !logger.isSeveritySatisfied(codedSeverity)) {
        return false;
    }
    if (codedSeverity > Severity_WARNING) {
        return true;
    }
    const ModuleRegistration& registrar = logger.moduleRegistrar();
    const unsigned int generation = registrar.getUpdate();
    std::uint64_t state = filterState.load(std::memory_order_relaxed);
    // Compared for inequality, not order, so the generation may wrap. Relaxed: the word contains all that is
    // passed on. The filter is read after the generation has been acquired, so that it is not older.
    if (state >> 1 != generation) {
        state = std::uint64_t(generation) << 1 | std::uint64_t(registrar.isModuleSelected(modName));
        filterState.store(state, std::memory_order_relaxed);
    }
    return (state & 1) != 0;
}

Module& Module::operator+=(std::ostream& header)
{
    auto* const record =
        typeid(header) == typeid(Header) ? static_cast<Header*>(&header) : dynamic_cast<Header*>(&header);
    if (record == nullptr) {
        throw std::invalid_argument("Supplied std::ostream is not an NIM Log Header.");
    }
    try {
        record->throwIfTruncated();
    } catch (const std::bad_alloc&) {
        countFailed(logger, record->getSeverityId());
        throw;
    }
    if (loggerGate.load(std::memory_order_relaxed) == &OPEN_GATE) {
        // Loggers of other classes may treat it as the string stream that it is.
        record->copyToStringStream();
    }
    if (StatementScope::isActive()) {
        logger.log(*this, *record, false);
    } else {
        // The record does not belong to a Statement.
        const StatementScope scope(record, __builtin_frame_address(0));
        logger.log(*this, *record, false);
    }
    return *this;
}

Control& Module::control() noexcept
{
    return logger;
}

}
