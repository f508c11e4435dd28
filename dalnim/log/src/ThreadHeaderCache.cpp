#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ThreadHeaderCache.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/src/SpareHeaders.hpp>
#include <dalnim/sys/internal/src/ThreadCacheState.hpp>

#include <new>

namespace com::kor::dal::nim::log {

namespace {

enum class State : unsigned char {
    /** Not constructed yet. */
    EMPTY,
    AVAILABLE,
    IN_USE
};

/** Plain storage, which can be accessed until the very end of the thread. */
struct Slot
{
    State state;
    sys::internal::ThreadCacheState cache;
    alignas(Header) unsigned char bytes[sizeof(Header)];

    Header& header() noexcept
    {
        return *std::launder(reinterpret_cast<Header*>(bytes));
    }
};

thread_local Slot slot;

/** Address of `slot`, or null before the first use in the thread. Unlike `slot`, it is read without a call.
 */
__attribute__((tls_model("initial-exec"))) __thread Slot* own_slot = nullptr;

Slot& ownSlot() noexcept
{
    if (__builtin_expect(own_slot == nullptr, false)) {
        own_slot = &slot;
    }
    return *own_slot;
}

/** Destroys the record of the ending thread. */
void destroySlot()
{
    // If an operand of an active statement ends the thread, the statement keeps its record.
    if (slot.state == State::AVAILABLE) {
        slot.header().~Header();
        slot.state = State::EMPTY;
    }
    slot.cache.exit();
}

sys::internal::ThreadExitHook exit_hook(destroySlot);

}

Header* ThreadHeaderCache::acquire(Severity severity, const SourcePosition& position)
{
    Slot& own = ownSlot();
    if (own.state == State::AVAILABLE) {
        own.header().start(severity, position);
    } else if (SpareHeaders::isRestricted()) {
        return SpareHeaders::acquire(severity, position);
    } else if (own.state == State::EMPTY && own.cache.activate(exit_hook)) {
        ::new (own.bytes) Header(Header::Origin::STATEMENT, severity, position);
    } else {
        return nullptr;
    }
    own.state = State::IN_USE;
    return &own.header();
}

bool ThreadHeaderCache::release(Header& header) noexcept
{
    Slot& own = ownSlot();
    if (static_cast<void*>(&header) != own.bytes) {
        return SpareHeaders::release(header);
    }
    header.reset();
    own.state = State::AVAILABLE;
    return true;
}

}
