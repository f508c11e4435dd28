#include <dalnim/dalbase.hpp>

#include "AttributeNames.hpp"

#include <atomic>
#include <cstring>
#include <ctime>
#include <sys/random.h>

namespace com::kor::dal::nim::xml {

namespace {

constexpr std::size_t INITIAL_SLOTS = 64;

constexpr std::uint64_t PRIME = (std::uint64_t{1} << 61) - 1;

std::uint64_t randomBase() noexcept
{
    std::uint64_t base = 0;
    if (getrandom(&base, sizeof base, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof base)) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        base = (static_cast<std::uint64_t>(now.tv_nsec) << 30) ^ reinterpret_cast<std::uintptr_t>(&now);
    }
    return base % (PRIME - 256) + 256;
}

/**
 * Returns the random base of this process's hashes. It is not a function-local static initialised at first
 * use: a child process that was forked during the initialisation would wait forever for a thread it lacks.
 */
std::uint64_t hashBase() noexcept
{
    // Relaxed: the number is all that is passed on.
    static std::atomic<std::uint64_t> shared{0};
    std::uint64_t base = shared.load(std::memory_order_relaxed);
    if (base == 0) {
        const std::uint64_t candidate = randomBase();
        // If another thread was first, the exchange fails and loads that thread's value into `base`.
        if (shared.compare_exchange_strong(base, candidate, std::memory_order_relaxed)) {
            base = candidate;
        }
    }
    return base;
}

/**
 * Evaluates the name as a polynomial over the field of 2^61 - 1 elements, at a point that is random in each
 * process. No document can therefore be crafted whose names collide (Carter and Wegman, 1979).
 */
std::uint64_t hashOf(const char* name, std::size_t length) noexcept
{
    const std::uint64_t base = hashBase();
    std::uint64_t hash = length;
    for (std::size_t i = 0; i < length; ++i) {
        __extension__ const unsigned __int128 product = static_cast<unsigned __int128>(hash) * base;
        hash = static_cast<std::uint64_t>(product & PRIME) + static_cast<std::uint64_t>(product >> 61)
               + static_cast<unsigned char>(name[i]);
        hash = (hash & PRIME) + (hash >> 61);
    }
    return hash == PRIME ? 0 : hash;
}

}

bool AttributeNames::addToTable(const char* name, std::size_t length, const char* const* attributes,
                                std::size_t names)
{
    if (names == MAX_LINEAR_SEARCH) {
        fill(attributes, names);
    } else if (2 * (names + 1) > slots.size()) {
        grow();
    }
    return insert(name, hashOf(name, length));
}

bool AttributeNames::isAmong(const char* name, const char* const* attributes,
                             std::size_t entries) const noexcept
{
    for (std::size_t i = 0; i < entries; i += 2) {
        if (attributes[i][0] == name[0] && std::strcmp(attributes[i], name) == 0) {
            return true;
        }
    }
    return false;
}

void AttributeNames::fill(const char* const* attributes, std::size_t names)
{
    slots.assign(INITIAL_SLOTS, Slot{0, nullptr});
    for (std::size_t i = 0; i < names; ++i) {
        const char* const name = attributes[2 * i];
        insert(name, hashOf(name, std::strlen(name)));
    }
}

bool AttributeNames::insert(const char* name, std::uint64_t hash)
{
    const std::size_t last = slots.size() - 1;
    for (std::size_t i = hash & last;; i = (i + 1) & last) {
        Slot& slot = slots[i];
        if (slot.name == nullptr) {
            slot = Slot{hash, name};
            return true;
        }
        if (slot.hash == hash && std::strcmp(slot.name, name) == 0) {
            return false;
        }
    }
}

void AttributeNames::grow()
{
    std::vector<Slot> old(2 * slots.size(), Slot{0, nullptr});
    old.swap(slots);
    for (const Slot& slot : old) {
        if (slot.name != nullptr) {
            insert(slot.name, slot.hash);
        }
    }
}

}
