#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/Ownership.hpp>

#define NIM_LOG_FILE "mt/src/Ownership"
#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/mem/src/RefCntAccess.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/src/SafeLog.hpp>

#include <stdexcept>

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

}

Ownership acquireOwnership(const Runnable& runnable)
{
    const auto* const counted = dynamic_cast<const mem::RefCntObject*>(&runnable);
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
    return dynamic_cast<const mem::RefCntObject*>(&runnable) != nullptr ? Ownership::COUNTED
                                                                        : Ownership::OWNED;
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
