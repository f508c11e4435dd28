#ifndef QV_RTLAPI_RX_STRING_HPP
#define QV_RTLAPI_RX_STRING_HPP

/**
 * @file
 * The string of the runtime layer, with comparison and output.
 */

#include <cstddef>
#include <iosfwd>
#include <utility>

#include <qv/pmx/api.h>
#include <qv/pmx/atomic.h>

/**
 * A copy-on-write byte string. It may contain zero bytes, and is followed by a terminator that length() does
 * not include.
 *
 * Thread safety: as for an `int`. Distinct objects may be used concurrently, even if they share a
 * representation.
 */
class DALNIM_API RX_String
{
public:
    /** The header of a representation; the characters follow it. */
    struct Rep
    {
        /** Length in bytes, without the terminator. */
        std::size_t length;
        /** Capacity in bytes, without the terminator. */
        std::size_t capacity;
        /** Number of strings that share it. */
        si_atomic_t ref_count;

        /** Returns the first character. */
        char* characters() noexcept
        {
            return reinterpret_cast<char*>(this + 1);
        }
    };

    /** The representation of the empty string with its terminator; not reference-counted, never freed. */
    struct EmptyRep
    {
        /** Has the length 0. */
        Rep rep;
        /** A zero byte. */
        char terminator;
    };

    /** As a length: up to the terminating zero byte. */
    static constexpr std::size_t NPOS = static_cast<std::size_t>(-1);

    /** The empty string, as the default of optional arguments. */
    static const RX_String none;

    /** The representation of all empty strings. */
    static EmptyRep _empty;

    constexpr RX_String() noexcept : _rep(&_empty.rep) {}
    /** Shares the representation of `other`. */
    RX_String(const RX_String& other) noexcept : _rep(other._rep)
    {
        attach();
    }
    /** Takes the representation of `other`, which becomes empty. */
    RX_String(RX_String&& other) noexcept : _rep(std::exchange(other._rep, &_empty.rep)) {}
    /**
     * Copies `length` bytes of `text`.
     *
     * @param text    null is the empty string
     * @param length  in bytes; NPOS means up to the terminating zero byte
     * @throws std::length_error  if the string is too long
     */
    RX_String(const char* text, std::size_t length = NPOS);
    ~RX_String()
    {
        deref();
    }

    /** Shares the representation of `other`. */
    RX_String& operator=(const RX_String& other) noexcept
    {
        RX_String(other).swap(*this);
        return *this;
    }
    /** Takes the representation of `other`, which becomes empty. */
    RX_String& operator=(RX_String&& other) noexcept
    {
        RX_String(std::move(other)).swap(*this);
        return *this;
    }
    /** Copies up to the terminating zero byte; null is the empty string. */
    RX_String& operator=(const char* text)
    {
        RX_String(text).swap(*this);
        return *this;
    }

    /** Appends `other`, in amortised constant time per byte. Throws std::length_error if it gets too long. */
    RX_String& operator+=(const RX_String& other);

    /** Returns the characters with their terminator, valid until this string is modified. */
    const char* data() const noexcept
    {
        return _rep->characters();
    }
    /** Returns the length in bytes, without the terminator. */
    std::size_t length() const noexcept
    {
        return _rep->length;
    }
    /** Returns the representation. The caller does not own a reference, and must not modify it. */
    Rep* getRep() const noexcept
    {
        return _rep;
    }
    /** Returns a string that owns one reference to `rep`, in memory from the global `operator new`. */
    static RX_String adopt(Rep* rep) noexcept
    {
        RX_String string;
        string._rep = rep;
        return string;
    }
    /** Returns the representation, with the reference that this string owns, and makes the string empty. */
    Rep* release() noexcept
    {
        return std::exchange(_rep, &_empty.rep);
    }

    /** Makes the string empty. */
    void clear() noexcept
    {
        deref();
    }
    /** Releases the representation and makes the string empty. */
    void deref() noexcept;

    /** Converts to lower case in place, in the current locale. Returns this string. */
    RX_String& toLower();
    /** Converts to upper case in place, in the current locale. Returns this string. */
    RX_String& toUpper();

    /** Swaps the two strings. */
    void swap(RX_String& other) noexcept
    {
        std::swap(_rep, other._rep);
    }

private:
    static Rep* allocate(std::size_t capacity);

    void attach() const noexcept
    {
        if (_rep != &_empty.rep) {
            qv_si_atomic_increment(&_rep->ref_count);
        }
    }
    void append(const char* text, std::size_t length);
    void makeWritable(std::size_t capacity);
    template <class Mapping>
    RX_String& mapCharacters(Mapping mapping);

    Rep* _rep;
};

inline void RX_String::deref() noexcept
{
    Rep* const rep = std::exchange(_rep, &_empty.rep);
    if (rep != &_empty.rep && qv_si_atomic_decrement(&rep->ref_count) == 0) {
        ::operator delete(rep);
    }
}

/** Compares all bytes. */
DALNIM_API bool operator==(const RX_String& left, const RX_String& right) noexcept;
/** Compares with `right` up to its terminating zero byte; `right` must not be null. */
DALNIM_API bool operator==(const RX_String& left, const char* right) noexcept;

/** @name Comparison: the other operand orders, and inequality */
/** @{ */
/** Compares as the two operators above. */
inline bool operator==(const char* left, const RX_String& right) noexcept
{
    return right == left;
}
inline bool operator!=(const RX_String& left, const RX_String& right) noexcept
{
    return !(left == right);
}
inline bool operator!=(const RX_String& left, const char* right) noexcept
{
    return !(left == right);
}
inline bool operator!=(const char* left, const RX_String& right) noexcept
{
    return !(right == left);
}
/** @} */

/** Writes all bytes, padded to the width of the stream. */
DALNIM_API std::ostream& operator<<(std::ostream& os, const RX_String& string);

#endif
