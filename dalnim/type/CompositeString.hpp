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
 * next() removes components from the front, last() from the back, and append() adds one at the end. Any
 * character of the delimiter set separates components; quotes and escapes have no meaning. A delimiter ends
 * the component before it, so "a+" has one component and "++" has two empty ones.
 *
 * Operations throw nothing but std::bad_alloc.
 *
 * Thread safety: several threads may call const operations concurrently; all others require exclusive access.
 */
class DALNIM_API CompositeString
{
public:
    static constexpr const char CLASS_NAME[] = "CompositeString";
    /** The delimiter set of constructors without a `delimiters` argument. */
    static constexpr const char DEFAULT_DELIMITERS[] = "+";

    /** The type of a delimiter. */
    typedef nim::SInt8_t SInt8_t;

    /** An empty string with the default delimiters. Empty components count. */
    CompositeString();

    /**
     * A composite with the default delimiters.
     * @param skip_empty  whether empty components are skipped
     */
    explicit CompositeString(const String& composite, bool skip_empty = false);

    /**
     * A composite with delimiters of its own.
     * @param delimiters  the delimiter set; append() inserts its first character. If it is empty, the whole
     *                    string is one component
     * @param skip_empty  whether empty components are skipped
     */
    CompositeString(const String& composite, const String& delimiters, bool skip_empty = false);

    // A string literal would convert to bool rather than to String, so it has an overload of its own.
    // Arguments that can only be meant for another parameter do not compile.
    /** The same, with delimiters from a literal or another zero-terminated string. */
    CompositeString(const String& composite, const char* delimiters, bool skip_empty = false);
    CompositeString(const String& composite, std::nullptr_t, bool skip_empty = false) = delete;
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
    CompositeString(const String& composite, T skip_empty_or_delimiter, bool skip_empty = false) = delete;

    /**
     * An independent copy.
     * @param deep  copies the strings byte by byte, so that they share no representation with those of
     *              `composite`, which another thread may then use
     */
    CompositeString(const CompositeString& composite, bool deep = false);
    CompositeString(const CompositeString& composite, const char* deep) = delete;

    /**
     * Copies the remaining string and the delimiters. The strings may share their representation with those
     * of `composite`.
     */
    CompositeString& operator=(const CompositeString& composite);

    ~CompositeString() = default;

    /** Returns the number of remaining components. */
    unsigned int components() const;

    /** Removes the first component with its delimiter and returns it, or an empty string if none is left. */
    String next();

    /**
     * The same.
     * @param dlm  receives the delimiter that ended the component, or 0 if the string ended it. Unchanged if
     *             no component is left
     */
    String next(SInt8_t& dlm);

    /**
     * Removes the last component and returns it, or an empty string if none is left. The delimiter before it
     * remains, and ends the component that is then the last.
     */
    String last();

    /**
     * Adds a component at the end, after the first delimiter of the set if the string is not empty. An empty
     * component adds one delimiter, or nothing if empty components are skipped.
     */
    CompositeString& append(const String& component);

    /** Same as append(). */
    CompositeString& operator+=(const String& component);

    /**
     * Returns the remaining string.
     * @param deep  returns a string that shares no representation with this object
     */
    String composite(bool deep = false) const;

    /** Same as composite(). */
    String toString(bool deep = false) const;

    /** Returns a non-null value, which is no address, if any characters remain, including delimiters. */
    operator const void*() const noexcept;
    /** Returns true if no characters remain. */
    bool operator!() const noexcept;

private:
    /**
     * Finds the component at `start`, or the next one that is not empty if empty components are skipped.
     * @param first  receives the position of its first character
     * @param delim  receives the position of its end
     * @return the number of characters from `start` to the end of its delimiter; 0 if no component is left,
     * and the results are unchanged
     */
    std::size_t find_next(std::size_t start, std::size_t& first, std::size_t& delim) const;

    bool skip_nil;
    String target;
    String delims;
};

}

#endif
