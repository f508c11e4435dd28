#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/Ownership.hpp>

#define NIM_LOG_FILE "mt/src/Ownership"
#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/mem/src/RefCntAccess.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/src/SafeLog.hpp>

#include <cxxabi.h>
#include <stdexcept>
#include <typeinfo>

namespace com::kor::dal::nim::mt {

namespace {

void logTrapped(const qv::CaughtException& caught, const char* message)
{
    if (caught.known() != nullptr) {
        NIM_LOG_TRAPPED(Severity_WARNING, *caught.known(), message);
    } else {
        NIM_LOG_TRAPPED(Severity_WARNING, std::runtime_error("Unknown exception"), message);
    }
}

/**
 * Returns true if each class from the type up to Runnable has a single, public, non-virtual base class, so
 * that no other base class is possible. Reads the type information only, since a cache by type would be
 * wrong after a plug-in is unloaded and another one is loaded at its address.
 */
bool derivesFromRunnableAlone([[maybe_unused]] const std::type_info& type)
{
#if defined(__GLIBCXX__)
    const std::type_info* current = &type;
    while (current != &typeid(Runnable)) {
        if (&typeid(*current) != &typeid(abi::__si_class_type_info)) {
            return false;
        }
        current = static_cast<const abi::__si_class_type_info*>(current)->__base_type;
    }
    return true;
#else
    // Other libraries do not declare the classes of the C++ ABI for type information.
    return false;
#endif
}

/** Returns the runnable as a reference-counted object, or null if it is none. */
const mem::RefCntObject* asCounted(const Runnable& runnable)
{
    // A dynamic_cast that fails visits all base classes, which takes ten times as long.
    return derivesFromRunnableAlone(typeid(runnable)) ? nullptr
                                                      : dynamic_cast<const mem::RefCntObject*>(&runnable);
}

}

Ownership acquireOwnership(const Runnable& runnable)
{
    const mem::RefCntObject* const counted = asCounted(runnable);
    if (counted == nullptr) {
        return Ownership::OWNED;
    }
    counted->acquireRef();
    return Ownership::COUNTED;
}

void undoOwnership(const Runnable& runnable, Ownership ownership)
{
    if (ownership == Ownership::COUNTED) {
        mem::RefCntAccess::undoAcquireRef(dynamic_cast<const mem::RefCntObject&>(runnable));
    }
}

Ownership ownershipOf(const Runnable& runnable)
{
    return asCounted(runnable) != nullptr ? Ownership::COUNTED : Ownership::OWNED;
}

bool isSoleOwner(const Runnable& runnable, Ownership ownership)
{
    return ownership == Ownership::OWNED
           || (ownership == Ownership::COUNTED
               && dynamic_cast<const mem::RefCntObject&>(runnable).refCount() == 1);
}

void endOwnership(Runnable* runnable, Ownership ownership, const char* message)
{
    const qv::CaughtException caught = qv::catchException([runnable, ownership] {
        if (ownership == Ownership::COUNTED) {
            dynamic_cast<const mem::RefCntObject&>(*runnable).releaseRef();
        } else if (ownership == Ownership::OWNED) {
            delete runnable;
        }
    });
    if (caught) {
        logSafely("Task", [&] { logTrapped(caught, message); });
    }
}

}
