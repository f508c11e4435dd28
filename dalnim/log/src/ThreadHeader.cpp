#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ThreadHeader.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/src/SpareHeaders.hpp>
#include <dalnim/sys/internal/src/ThreadExitHook.hpp>

#include <new>

namespace com::kor::dal::nim::log {

namespace {

enum class State : unsigned char {
    /** There is none yet, or none any more. */
    EMPTY,
    SPARE,
    LENT,
    /** The thread ends: what logs after this makes records of its own. */
    GONE
};

/** Plain storage, so that it can be looked at until the very end of the thread. */
struct Slot
{
    State state;
    alignas(Header) unsigned char bytes[sizeof(Header)];

    Header& header() noexcept
    {
        return *std::launder(reinterpret_cast<Header*>(bytes));
    }
    void drop() noexcept
    {
        header().~Header();
        state = State::EMPTY;
    }
};

thread_local Slot slot;

/** Ends the record with its thread. */
void endSlot()
{
    // A statement that is underway, whose own expressions have ended the thread, keeps its record.
    if (slot.state == State::SPARE) {
        slot.drop();
    }
    slot.state = State::GONE;
}

sys::internal::ThreadExitHook exit_hook(endSlot);

}

Header* ThreadHeader::lend(Severity severity, const char* file, unsigned int line)
{
    if (slot.state == State::SPARE && !slot.header().renew(severity, file, line)) {
        slot.drop();
    }
    if (slot.state != State::SPARE && SpareHeaders::isRestricted()) {
        return SpareHeaders::acquire(severity, file, line);
    }
    if (slot.state == State::EMPTY) {
        if (!exit_hook.arm()) {
            return nullptr;
        }
        ::new (slot.bytes) Header(severity, file, line);
    } else if (slot.state != State::SPARE) {
        return nullptr;
    }
    slot.state = State::LENT;
    return &slot.header();
}

bool ThreadHeader::takeBack(Header& header) noexcept
{
    if (static_cast<void*>(&header) != slot.bytes) {
        return SpareHeaders::release(header);
    }
    slot.state = State::SPARE;
    if (!header.restore()) {
        slot.drop();
    }
    return true;
}

}
