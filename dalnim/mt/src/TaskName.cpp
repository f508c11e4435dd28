#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/TaskName.hpp>

#include <dalnim/mt/src/BlockAllocator.hpp>

#include <charconv>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

constexpr std::size_t BLOCK_SIZE = 56;
/** Capacity of a block, without the terminator, and of no representation of another size. */
constexpr std::size_t BLOCK_CAPACITY = BLOCK_SIZE - sizeof(RX_String::Rep) - 1;

static_assert(BlockAllocator::blockSize(BLOCK_SIZE) == BLOCK_SIZE,
              "the block of a string must be of this size");

/** Returns two texts, one after the other. */
RX_String concatenated(const char* first, std::size_t firstLength, const char* second,
                       std::size_t secondLength)
{
    const std::size_t length = firstLength + secondLength;
    if (length == 0) {
        return RX_String();
    }
    if (length > BLOCK_CAPACITY) {
        return RX_String(first, firstLength) += RX_String(second, secondLength);
    }
    auto* const rep = new (BlockAllocator::allocate(BLOCK_SIZE)) RX_String::Rep{length, BLOCK_CAPACITY, 1};
    std::memcpy(rep->characters(), first, firstLength);
    std::memcpy(rep->characters() + firstLength, second, secondLength);
    rep->characters()[length] = '\0';
    return RX_String::adopt(rep);
}

}

RX_String makeTaskName(const char* name, const char* label, TaskID_t id)
{
    if (name != nullptr) {
        return concatenated(name, std::strlen(name), "", 0);
    }
    char digits[std::numeric_limits<TaskID_t>::digits10 + 1];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, id);
    return concatenated(label, std::strlen(label), digits, static_cast<std::size_t>(result.ptr - digits));
}

void releaseTaskName(RX_String& name) noexcept
{
    // A representation of this capacity is in a block of this size, also if the string itself allocated it.
    RX_String::Rep* const rep = name.getRep();
    // Acquire: former owners read the name before they decremented the count with release order.
    if (rep->capacity == BLOCK_CAPACITY && __atomic_load_n(&rep->ref_count, __ATOMIC_ACQUIRE) == 1) {
        BlockAllocator::deallocate(name.release(), BLOCK_SIZE);
    }
}

}
