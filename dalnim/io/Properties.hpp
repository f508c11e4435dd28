#ifndef DALNIM_IO_PROPERTIES_HPP
#define DALNIM_IO_PROPERTIES_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <iosfwd>
#include <iterator>
#include <map>
#include <utility>

namespace com::kor::dal::nim::io {

/**
 * A table of properties, strings by string, for configuration; and the text format of properties files.
 *
 * Keys are unique, and sorted by their bytes. The format has one property in a line, "key=value", with
 * comments, escapes, continued lines and `%pragma include "file"`. load() documents it.
 *
 * Thread safety: several threads may call const operations concurrently. All others require exclusive access,
 * including a load() that adds nothing and a write through an Iterator.
 */
class DALNIM_API Properties
{
    typedef std::map<String, String> Data;

public:
    static constexpr const char CLASS_NAME[] = "Properties";

    /** What load() reports in addition to errors. SEV_NOTE is equivalent to SEV_WARNING. */
    enum Severity { SEV_ERROR = 0, SEV_WARNING = 1, SEV_NOTE = 2 };

    class ConstIterator;

    /**
     * A position in the table, with write access to the value. It is valid until its property is removed or
     * the table is destroyed.
     */
    class DALNIM_API Iterator
    {
    public:
        /** @name Requirements of the standard algorithms */
        /** @{ */
        /** A forward iterator. */
        typedef std::forward_iterator_tag iterator_category;
        typedef std::pair<const String, String> value_type;
        typedef std::ptrdiff_t difference_type;
        typedef value_type* pointer;
        typedef value_type& reference;
        /** @} */

        /** No position. May only be assigned to. */
        Iterator() = default;

        /** @name Comparison */
        /** @{ */
        /** Compares positions, of iterators of either kind. */
        bool operator==(const Iterator& r) const noexcept;
        bool operator==(const ConstIterator& r) const noexcept;
        bool operator!=(const Iterator& r) const noexcept;
        bool operator!=(const ConstIterator& r) const noexcept;
        /** @} */

        /** Advances to the next key. Undefined at end(). */
        Iterator& operator++() noexcept;
        /** The same; returns the position before the call. */
        Iterator operator++(int) noexcept;

        /** Returns the key and the value. Undefined at end(). */
        reference operator*() const noexcept;
        /** Accesses the key or the value. Undefined at end(). */
        pointer operator->() const noexcept;

    private:
        friend class Properties;
        friend class ConstIterator;

        explicit Iterator(Data::iterator position) noexcept;

        Data::iterator it;
    };

    /** A position in the table, for reading. An Iterator converts to it. */
    class DALNIM_API ConstIterator
    {
    public:
        /** @name Requirements of the standard algorithms */
        /** @{ */
        /** A forward iterator. */
        typedef std::forward_iterator_tag iterator_category;
        typedef std::pair<const String, String> value_type;
        typedef std::ptrdiff_t difference_type;
        typedef const value_type* pointer;
        typedef const value_type& reference;
        /** @} */

        /** No position. May only be assigned to. */
        ConstIterator() = default;
        /** Converts a position. */
        ConstIterator(const Iterator& r) noexcept;

        /** @name Comparison */
        /** @{ */
        /** Compares positions, of iterators of either kind. */
        bool operator==(const ConstIterator& r) const noexcept;
        bool operator==(const Iterator& r) const noexcept;
        bool operator!=(const ConstIterator& r) const noexcept;
        bool operator!=(const Iterator& r) const noexcept;
        /** @} */

        /** Advances to the next key. Undefined at end(). */
        ConstIterator& operator++() noexcept;
        /** The same; returns the position before the call. */
        ConstIterator operator++(int) noexcept;

        /** Returns the key and the value. Undefined at end(). */
        reference operator*() const noexcept;
        /** Accesses the key or the value. Undefined at end(). */
        pointer operator->() const noexcept;

    private:
        friend class Properties;
        friend class Iterator;

        explicit ConstIterator(Data::const_iterator position) noexcept;

        Data::const_iterator it;
    };

    /** An empty table. */
    Properties();

    /**
     * A table with the properties of `src`.
     * @param deep  copies strings so that they share no representation with those of `src`
     */
    Properties(const Properties& src, bool deep = false);

    /** Loads `is`. See load() with the same parameters. */
    explicit Properties(std::istream& is, bool keep_trailing_ws = false);
    /** Loads `is`. See load() with the same parameters. */
    Properties(std::istream& is, String filepath, std::ostringstream& warnings, std::ostringstream& notes,
               Severity sev, bool keep_trailing_ws = false);

    ~Properties();

    Properties& operator=(const Properties&) = delete;

    // A pointer would convert to the flag silently: it is a misplaced path.
    template <typename T>
    Properties(std::istream& is, const T* keep_trailing_ws) = delete;
    template <typename T>
    std::istream& load(std::istream& is, const T* keep_trailing_ws) = delete;

    /** Loads a stream that is not a file: discards warnings. Include paths are relative to the working
     * directory. */
    std::istream& load(std::istream& is, bool keep_trailing_ws = false);

    /**
     * Reads properties from `is` up to its end and adds them to this table. If a key is assigned several
     * times, the last value is used.
     *
     * The format consists of bytes, without an encoding. White space is defined by isspace().
     *  - Leading white space and empty lines are skipped. A line that begins with "#" or "!" is a comment.
     *  - The key ends at the first white space, "=" or ":". One "=" or ":", and the white space around it,
     * separates it from the value. White space after the value is removed, unless it is escaped or
     * `keep_trailing_ws` is true.
     *  - A backslash at the end of a line continues the property on the next line, without that line's
     * leading white space. An empty line, a line that begins with "%", or the end of the file ends it.
     * Otherwise
     *    `\a \b \f \n \r \t \v` denote the control bytes, `\x4 \x41` and `\u0041` a byte in hexadecimal (at
     * most two digits; exactly four, up to 00ff), `\101` a byte in octal, and a backslash before any other
     * byte denotes that byte. Escapes are decoded before the key is separated, so they do not protect a
     * separator.
     *  - `%pragma include "path"` reads another file at this point, unless this load has already read it. The
     * path is appended to the directory of the including file.
     *  - `%pragma severity error|warning|note` sets `sev` for the rest of this file and the files that it
     * includes. Other lines that begin with "%" are ignored.
     *
     * Includes may nest as deep as the process can open files; beyond that, a file cannot be opened. Each
     * file is read once, regardless of the spelling of its path: paths are compared with links, "." and ".."
     * resolved, so that every cycle ends. Messages contain the path as spelled.
     *
     * A leading "/" does not make an include path absolute, but the path may contain "..". Anything that it
     * names is read to its end: reading a pipe blocks, and an infinite device is read until memory runs out.
     * Trust a properties file as much as the program that reads it.
     *
     * @param filepath          names the file in messages; its directory is that of its includes. May be
     * empty
     * @param warnings          receives a line `WARNING: <name>:<line>: Overriding property "<key>"` for each
     * key that already existed, if `sev` is above SEV_ERROR
     * @param notes             receives nothing
     * @param sev               the reports to write
     * @param keep_trailing_ws  keeps the white space after values, including a CR before the line feed
     *
     * @return `is`. A read error ends the file without a message
     * @throws std::invalid_argument  `ERROR: <name>:<line>: ` and the error in that line. Properties read
     * before it remain in the table
     * @throws std::runtime_error     the same, if an included file cannot be opened
     */
    std::istream& load(std::istream& is, String filepath, std::ostringstream& warnings,
                       std::ostringstream& notes, Severity sev, bool keep_trailing_ws = false);

    /**
     * Writes "#" and `header` unless it is empty, "#" and the local time, then each property as "key=value"
     * in the order of the keys, and flushes the stream.
     *
     * Only control bytes, backslashes and bytes above 126 are escaped. load() therefore does not restore keys
     * that contain white space or a separator or begin with "#", "!" or "%", nor leading white space of
     * values.
     *
     * @return `os`, whose state shows whether all was written
     */
    std::ostream& store(std::ostream& os, const String& header) const;

    /**
     * Copies the properties of `src` to this table. Values of existing keys are replaced.
     * @param deep  copies strings so that they share no representation with those of `src`
     */
    Properties& addAll(const Properties& src, bool deep = false)
    {
        src.addAllTo(*this, deep);
        return *this;
    }

    /** Returns true if the key exists. */
    bool containsKey(const String& key) const;

    /**
     * Returns the value of `key`, or `default_val` itself if the key does not exist. A temporary default must
     * outlive the use of the result. The result is valid until the value is replaced.
     */
    const String& getProperty(const String& key, const String& default_val) const;

    /** Returns the value of `key`, or an empty string that is valid as long as the table. */
    const String& getProperty(const String& key) const;

    /**
     * Inserts a property or replaces its value.
     *
     * @throws std::invalid_argument  "empty key not allowed"
     */
    void setProperty(const String& key, const String& val);

    /**
     * Returns the properties whose keys begin with `prefix`. The time is that of a lookup and of copying the
     * result.
     *
     * @param strip_prefix  removes the prefix from the keys
     * @param deep          has no effect
     * @return a new table, which the caller must delete
     * @throws std::invalid_argument  "empty key not allowed", if `strip_prefix` is true and a key is equal to
     * the prefix
     */
    Properties* getProperties(const String& prefix, bool strip_prefix = true, bool deep = false) const;

    /**
     * The same for several prefixes. If stripped keys are equal, the later prefix takes precedence.
     * `prefixes` may be null if `num_prefixes` is 0.
     *
     * @throws std::invalid_argument  also "null prefix list not allowed", "null prefix not allowed"
     */
    Properties* getProperties(const String** prefixes, unsigned int num_prefixes, bool strip_prefix = true,
                              bool deep = false) const;

    /** Returns true if the table has no properties. */
    bool empty() const noexcept
    {
        return data.empty();
    }

    /** Returns the number of properties. */
    std::size_t size() const noexcept
    {
        return data.size();
    }

    /**
     * Returns the position of the first property in the order of the keys. Writing to values requires
     * exclusive access to the table.
     */
    Iterator begin() noexcept;
    /** Returns the position after the last property. */
    Iterator end() noexcept;
    /** Returns the position of the first property in the order of the keys, for reading. */
    ConstIterator begin() const noexcept;
    /** Returns the position after the last property, for reading. */
    ConstIterator end() const noexcept;

private:
    class Loader;

    /** Reads one file and the files that it includes. `includes` contains the files of this load. */
    std::istream& load_r(std::istream& is, String filepath, std::ostringstream& warnings,
                         std::ostringstream& notes, Severity sev, bool keep_trailing_ws);

    void addAllTo(Properties& dest, bool deep) const;
    void addSelectionTo(Properties& dest, const String& prefix, bool strip_prefix) const;

    Data data;
    /** The files of the current load, as spelled and as resolved: prevents reading a file twice. */
    std::map<String, bool> includes;
    /** The result for a missing key. */
    const String EMPTY;
};

}

#endif
