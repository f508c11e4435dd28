#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/StatementScope.hpp>

#include <cstdint>
#include <unwind.h>

namespace com::kor::dal::nim::log {

namespace {

/** An inspection of the stack, from the innermost frame outwards. */
struct Search
{
    std::uintptr_t statement;
    /** Lowest address of the frame that was visited last. */
    std::uintptr_t innerFrame;
    bool isSignalFound;
};

_Unwind_Reason_Code visit(_Unwind_Context* context, void* argument)
{
    auto& search = *static_cast<Search*>(argument);
    const auto frame = static_cast<std::uintptr_t>(_Unwind_GetCFA(context));
    // Not an order alone: a handler may run on a stack of its own.
    if (search.innerFrame <= search.statement && search.statement < frame) {
        return _URC_END_OF_STACK;
    }
    search.innerFrame = frame;
    int isInterruptedHere = 0;
    _Unwind_GetIPInfo(context, &isInterruptedHere);
    if (isInterruptedHere != 0) {
        search.isSignalFound = true;
        return _URC_END_OF_STACK;
    }
    return _URC_NO_REASON;
}

}

__thread const void* volatile StatementScope::outermost = nullptr;

void StatementScope::initialize() noexcept
{
    const StatementScope scope(__builtin_frame_address(0));
    static_cast<void>(hasSignalFrame());
}

bool StatementScope::hasSignalFrame() noexcept
{
    Search search = {reinterpret_cast<std::uintptr_t>(outermost),
                     reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), false};
    _Unwind_Backtrace(visit, &search);
    return search.isSignalFound;
}

}
