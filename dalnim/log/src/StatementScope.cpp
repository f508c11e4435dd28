#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/StatementScope.hpp>

#include <cstdint>
#include <unwind.h>

namespace com::kor::dal::nim::log {

namespace {

/** A search through the stack, from the innermost frame outwards. */
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
    int isInterruptedHere = 0;
    _Unwind_GetIPInfo(context, &isInterruptedHere);
    if (isInterruptedHere != 0) {
        search.isSignalFound = true;
        return _URC_END_OF_STACK;
    }
    // Compared with both frames: a handler may run on a stack of its own.
    if (search.innerFrame <= search.statement && search.statement < frame) {
        return _URC_END_OF_STACK;
    }
    search.innerFrame = frame;
    return _URC_NO_REASON;
}

/** Returns true if a signal handler was called since the statement with that frame address began. */
bool hasSignalFrame(std::uintptr_t statement) noexcept
{
    Search search = {statement, reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)), false};
    _Unwind_Backtrace(visit, &search);
    return search.isSignalFound;
}

}

__thread const void* volatile StatementScope::outermost = nullptr;
__thread const void* volatile StatementScope::outermostFrame = nullptr;

void StatementScope::initialize() noexcept
{
    static_cast<void>(hasSignalFrame(0));
}

bool StatementScope::isInterrupted() noexcept
{
    // Between an interrupted statement and this call the system has stored the registers: 440 bytes and at
    // least 512 for those of floating point. Most nested statements are closer to the outer one.
    constexpr std::uintptr_t SIGNAL_FRAME_SIZE = 440 + 512;
    const auto statement = reinterpret_cast<std::uintptr_t>(outermostFrame);
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return statement - here >= SIGNAL_FRAME_SIZE && hasSignalFrame(statement);
}

}
