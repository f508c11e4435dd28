#include <dalnim/dalbase.hpp>

#include <dalnim/log/Module.hpp>

#include <dalnim/log/Write.hpp>
#include <dalnim/log/src/LoggerState.hpp>

#include <typeinfo>

// The operations of Module that treat a Write differently from other loggers. They are defined here because
// modules come below the loggers, which they otherwise know only as Log.

namespace com::kor::dal::nim::log {

const SeverityGate* Module::gateOf(const Log& logger) noexcept
{
    return typeid(logger) == typeid(Write) ? &static_cast<const Write&>(logger).severity : nullptr;
}

void Module::countRefused(Log& logger) noexcept
{
    if (auto* const counter = dynamic_cast<Write*>(&logger)) {
        // Relaxed: a count.
        counter->refusedStatements.fetch_add(1, std::memory_order_relaxed);
    }
}

void Module::countFailed(Log& logger, Severity severity) noexcept
{
    if (auto* const counter = dynamic_cast<Write*>(&logger)) {
        counter->state().counters.countFailed(severity);
    }
}

}
