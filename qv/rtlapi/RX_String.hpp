#ifndef QV_RTLAPI_RX_STRING_HPP
#define QV_RTLAPI_RX_STRING_HPP

/**
 * @file
 * The string of the runtime layer, and how it is compared and written.
 */

#include <cstddef>
#include <iosfwd>
#include <utility>

#include <qv/pmx/api.h>
#include <qv/pmx/atomic.h>

/**
 * A string of bytes whose copies share one representation until one of them is written to. It may
 * hold zero bytes; a terminator that does not count follows its last byte.
 *
 * Thread safety: like an `int`. Distinct objects may be used in any threads at once, also when they
 * share a representation.
 */
class DALNIM_API RX_String
{
public:
    /** What stands in front of the characters. */
    struct Rep
    {
        /** In bytes, without the terminator. */
        std::size_t length;
        /** For how many bytes there is room, without the terminator. */
        std::size_t capacity;
        /** How many strings share it. */
        si_atomic_t ref_count;

        /** The first character. */
        char* characters() noexcept
        {
            return reinterpret_cast<char*>(this + 1);
        }
    };

    /** The representation of the empty string and its terminator, never counted and never freed. */
    struct EmptyRep
    {
        /** Its length is 0. */
        Rep rep;
        /** A zero byte. */
        char terminator;
    };

    /** As a length: up to the terminating zero. */
    static constexpr std::size_t NPOS = static_cast<std::size_t>(-1);

    /** The empty string that stands for an argument left out. */
    static const RX_String none;

    /** Shared by all empty strings. */
    static EmptyRep _empty;

    constexpr RX_String() noexcept : _rep(&_empty.rep) {}
    /** Shares the representation of `other`. */
    RX_String(const RX_String& other) noexcept : _rep(other._rep)
    {
        attach();
    }
    /** Takes over the representation of `other`, which is empty then. */
    RX_String(RX_String&& other) noexcept : _rep(std::exchange(other._rep, &_empty.rep)) {}
    /**
     * Copies `length` bytes of `text`.
     *
     * @param text    may be null, which is the empty text
     * @param length  NPOS means up to the terminating zero
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
    /** Takes over the representation of `other`, which is empty then. */
    RX_String& operator=(RX_String&& other) noexcept
    {
        RX_String(std::move(other)).swap(*this);
        return *this;
    }
    /** Copies up to the terminating zero; null is the empty text. */
    RX_String& operator=(const char* text)
    {
        RX_String(text).swap(*this);
        return *this;
    }

    /** Appends; takes constant time a byte over many calls. */
    RX_String& operator+=(const RX_String& other);

    /** The characters and their terminator, valid until this string is changed. */
    const char* data() const noexcept
    {
        return _rep->characters();
    }
    /** In bytes, without the terminator. */
    std::size_t length() const noexcept
    {
        return _rep->length;
    }
    /** The representation: to be looked at, and not counted for the caller. */
    Rep* getRep() const noexcept
    {
        return _rep;
    }

    /** Leaves the empty string. */
    void clear() noexcept
    {
        deref();
    }
    /** Gives up the share of the representation, and leaves the empty string. */
    void deref() noexcept;

    /** Lowers the letters in place, by the character classes of the current locale. */
    RX_String& toLower();
    /** Raises the letters in place, by the character classes of the current locale. */
    RX_String& toUpper();

    /** Exchanges the two. */
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
/** Compares up to the terminating zero of `right`, which must not be null. */
DALNIM_API bool operator==(const RX_String& left, const char* right) noexcept;

/** @name Comparison, the other ways */
/** @{ */
/** As the two above. */
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

/** Writes all bytes, within the width of the stream. */
DALNIM_API std::ostream& operator<<(std::ostream& os, const RX_String& string);

#endif
