#include <dalnim/dalbase.hpp>

#include <dalnim/type/StringOps.hpp>

#include <dalnim/sys/InitLock.hpp>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <cstring>

namespace com::kor::dal::nim::type {

namespace {

/** Returns l - r, limited to the range of int. Only the sign matters. */
int lengthDifference(std::size_t l, std::size_t r) noexcept
{
    constexpr std::size_t LIMIT = INT_MAX;
    return l >= r ? static_cast<int>(std::min(l - r, LIMIT)) : -static_cast<int>(std::min(r - l, LIMIT));
}

}

/** Returns `tolower()` of each byte, in the locale of the process at the first call. */
const unsigned char* StringOps::_get_lowercase_char_xlat_table() noexcept
{
    static unsigned char XLAT[UCHAR_MAX + 1];
    // Set under InitLock. The store releases the table to a thread whose first load, an acquire, sees it. The
    // load under the lock may be relaxed: the lock orders it after the store.
    static std::atomic<bool> inited{false};

    if (!inited.load(std::memory_order_acquire)) {
        const sys::InitLock lock(true);
        if (!inited.load(std::memory_order_relaxed)) {
            for (int i = 0; i <= UCHAR_MAX; ++i) {
                XLAT[i] = static_cast<unsigned char>(std::tolower(i));
            }
            inited.store(true, std::memory_order_release);
        }
    }
    return XLAT;
}

int StringOps::_compare(const char* l, std::size_t l_length, const char* r, std::size_t r_length)
{
    const int diff = lengthDifference(l_length, r_length);
    const std::size_t shorter = std::min(l_length, r_length);
    if (shorter == 0) {
        return diff;
    }
    const unsigned char* const table = _get_lowercase_char_xlat_table();
    for (std::size_t i = 0; i < shorter; ++i) {
        const int difference =
            table[static_cast<unsigned char>(l[i])] - table[static_cast<unsigned char>(r[i])];
        if (difference != 0) {
            return difference;
        }
    }
    return diff;
}

int StringOps::compareIgnoreCase(const String& l, const String& r)
{
    return _compare(l.data(), l.size(), r.data(), r.size());
}

int StringOps::compareIgnoreCase(const char* l, const char* r)
{
    if (l == nullptr || r == nullptr) {
        return static_cast<int>(l != nullptr) - static_cast<int>(r != nullptr);
    }
    return _compare(l, std::strlen(l), r, std::strlen(r));
}

}
