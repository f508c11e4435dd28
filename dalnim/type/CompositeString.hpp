#ifndef DALNIM_TYPE_COMPOSITESTRING_HPP
#define DALNIM_TYPE_COMPOSITESTRING_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <type_traits>

namespace com::kor::dal::nim::type {

/**
 * A string of components separated by delimiter characters, such as a search path.
 *
 * It is consumed from the front by next() and from the back by last(), and extended by append().
 * Any character of the delimiter set separates; there is no quoting and no escape. A delimiter
 * ends the component before it, so "a+" has one component and "++" has two empty ones.
 *
 * One object belongs to one thread at a time; const operations may run side by side.
 * Operations throw nothing but std::bad_alloc.
 */
class DALNIM_API CompositeString
{
public:
    static constexpr const char CLASS_NAME[] = "CompositeString";
    /** The delimiter set of a composite for which none is given. */
    static constexpr const char DEFAULT_DELIMITERS[] = "+";

    /** The type of a delimiter. */
    typedef nim::SInt8_t SInt8_t;

    /** An empty text with the default delimiters; empty components count. */
    CompositeString();

    /** With the default delimiters; `skip_empty` passes over empty components. */
    explicit CompositeString(const String& composite, bool skip_empty = false);

    /**
     * With the characters of `delimiters`, of which the first joins what is appended.
     * An empty set makes the whole text one component.
     */
    CompositeString(const String& composite, const String& delimiters, bool skip_empty = false);

    // A literal would prefer its conversion to bool over the one to String: take it by itself,
    // and refuse what can only be a mistake for one of the two.
    /** The same from a literal, or a text that ends at its zero byte. */
    CompositeString(const String& composite, const char* delimiters, bool skip_empty = false);
    CompositeString(const String& composite, std::nullptr_t, bool skip_empty = false) = delete;
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
    CompositeString(const String& composite, T skip_empty_or_delimiter, bool skip_empty = false) = delete;

    /**
     * A copy with its own place in the text. With `deep`, the strings share no representation with
     * those of `composite`, which may be in use on another thread afterwards.
     */
    CompositeString(const CompositeString& composite, bool deep = false);
    CompositeString(const CompositeString& composite, const char* deep) = delete;

    /**
     * Takes over text, delimiters and place; the strings may share their representation with those of
     * `composite`.
     */
    CompositeString& operator=(const CompositeString& composite);

    ~CompositeString() = default;

    /** The number of components left. Consumes nothing. */
    unsigned int components() const;

    /** Removes the first component and its delimiter, and returns it; empty when none is left. */
    String next();

    /**
     * The same. `dlm` receives the delimiter that ended the component, or the zero byte at the end
     * of the text; it is left alone when no component was left.
     */
    String next(SInt8_t& dlm);

    /**
     * Removes the last component and returns it; empty when none is left. The delimiter before it
     * stays and ends the component that is now the last.
     */
    String last();

    /**
     * Adds a component at the end, behind the first delimiter if there is a text before it.
     * An empty component adds one delimiter, or nothing where empty components are passed over.
     */
    CompositeString& append(const String& component);

    /** append() */
    CompositeString& operator+=(const String& component);

    /** The text not consumed yet; with `deep`, a string that shares nothing with this object. */
    String composite(bool deep = false) const;

    /** composite() */
    String toString(bool deep = false) const;

    /** Whether any text is left, delimiters included: a truth value, not an address. */
    operator const void*() const noexcept;
    /** Whether no text is left. */
    bool operator!() const noexcept;

private:
    /**
     * Finds the component that begins at `start` or, passing over empty ones, behind it: `first`
     * is where it begins and `delim` where it ends. Returns how many characters from `start` on it
     * takes up together with its delimiter; 0 when there is none, and the results are left alone.
     */
    std::size_t find_next(std::size_t start, std::size_t& first, std::size_t& delim) const;

    bool skip_nil;
    String target;
    String delims;
};

}

#endif
