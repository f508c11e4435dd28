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
 * An ordered table of strings by string: configuration, and the text format that it is kept in.
 *
 * Keys are unique and stand in byte-wise order. The text format is a property a line, "key=value",
 * with comments, escapes, continued lines and `%pragma include "file"`; load() tells it in full.
 *
 * Thread safety: const operations may run side by side. Everything else needs the table for itself,
 * also a load() that adds nothing and a write through an Iterator.
 */
class DALNIM_API Properties
{
    typedef std::map<String, String> Data;

public:
    static constexpr const char CLASS_NAME[] = "Properties";

    /** What load() reports besides errors; SEV_NOTE behaves like SEV_WARNING. */
    enum Severity { SEV_ERROR = 0, SEV_WARNING = 1, SEV_NOTE = 2 };

    class ConstIterator;

    /**
     * A position in the table, with write access to the value there: this alone changes a value
     * without setProperty(). It stays valid until its property or the table is gone.
     */
    class DALNIM_API Iterator
    {
    public:
        /** @name What the standard algorithms ask of an iterator */
        /** @{ */
        /** As a forward iterator has it. */
        typedef std::forward_iterator_tag iterator_category;
        typedef std::pair<const String, String> value_type;
        typedef std::ptrdiff_t difference_type;
        typedef value_type* pointer;
        typedef value_type& reference;
        /** @} */

        /** No position: only to be assigned to. */
        Iterator() = default;

        /** @name Comparison */
        /** @{ */
        /** Whether the two stand at the same position, or do not, whatever the kinds of the two. */
        bool operator==(const Iterator& r) const noexcept;
        bool operator==(const ConstIterator& r) const noexcept;
        bool operator!=(const Iterator& r) const noexcept;
        bool operator!=(const ConstIterator& r) const noexcept;
        /** @} */

        /** Goes on to the next key; not to be done at end(). */
        Iterator& operator++() noexcept;
        /** The same, and gives the position that it leaves. */
        Iterator operator++(int) noexcept;

        /** The key and the value; not to be asked of end(). */
        reference operator*() const noexcept;
        /** Access to the key and to the value; not at end(). */
        pointer operator->() const noexcept;

    private:
        friend class Properties;
        friend class ConstIterator;

        explicit Iterator(Data::iterator position) noexcept;

        Data::iterator it;
    };

    /** The same for reading. Every Iterator is one, but not the other way round. */
    class DALNIM_API ConstIterator
    {
    public:
        /** @name What the standard algorithms ask of an iterator */
        /** @{ */
        /** As a forward iterator has it. */
        typedef std::forward_iterator_tag iterator_category;
        typedef std::pair<const String, String> value_type;
        typedef std::ptrdiff_t difference_type;
        typedef const value_type* pointer;
        typedef const value_type& reference;
        /** @} */

        /** No position: only to be assigned to. */
        ConstIterator() = default;
        /** The same position, for reading. */
        ConstIterator(const Iterator& r) noexcept;

        /** @name Comparison */
        /** @{ */
        /** Whether the two stand at the same position, or do not, whatever the kinds of the two. */
        bool operator==(const ConstIterator& r) const noexcept;
        bool operator==(const Iterator& r) const noexcept;
        bool operator!=(const ConstIterator& r) const noexcept;
        bool operator!=(const Iterator& r) const noexcept;
        /** @} */

        /** Goes on to the next key; not to be done at end(). */
        ConstIterator& operator++() noexcept;
        /** The same, and gives the position that it leaves. */
        ConstIterator operator++(int) noexcept;

        /** The key and the value; not to be asked of end(). */
        reference operator*() const noexcept;
        /** Access to the key and to the value; not at end(). */
        pointer operator->() const noexcept;

    private:
        friend class Properties;
        friend class Iterator;

        explicit ConstIterator(Data::const_iterator position) noexcept;

        Data::const_iterator it;
    };

    /** An empty table. */
    Properties();

    /** A table with the properties of `src`; with `deep`, of strings that share nothing with them. */
    Properties(const Properties& src, bool deep = false);

    /** An empty table, then the load() with the same arguments. */
    explicit Properties(std::istream& is, bool keep_trailing_ws = false);
    /** An empty table, then the load() with the same arguments: a text that fails leaves no table. */
    Properties(std::istream& is, String filepath, std::ostringstream& warnings, std::ostringstream& notes,
               Severity sev, bool keep_trailing_ws = false);

    ~Properties();

    Properties& operator=(const Properties&) = delete;

    // A pointer in the place of the flag is a path that has lost its way.
    template <typename T>
    Properties(std::istream& is, const T* keep_trailing_ws) = delete;
    template <typename T>
    std::istream& load(std::istream& is, const T* keep_trailing_ws) = delete;

    /** load() of a text that is no file: warnings are dropped, includes start at the working directory. */
    std::istream& load(std::istream& is, bool keep_trailing_ws = false);

    /**
     * Reads properties from `is` up to its end and adds them to this table, where the last
     * assignment to a key wins.
     *
     * The format works on bytes and knows no encoding. What isspace() holds for is white space.
     *  - Leading white space and blank lines are skipped. A line that begins with "#" or "!" is a
     *    comment.
     *  - The key ends at the first white space, "=" or ":"; one "=" or ":", and the white space
     *    around it, separates it from the value. White space behind the value is dropped, unless
     *    it is escaped or `keep_trailing_ws` is set.
     *  - A backslash at the very end continues the property on the next line, without that line's
     *    leading white space; a blank line, a line that begins with "%" and the end of the file end
     *    it. Elsewhere `\a \b \f \n \r \t \v` are the control bytes, `\x4 \x41` and `\u0041` a byte
     *    in hexadecimal (two digits at most; exactly four, up to 00ff), `\101` a byte in octal,
     *    and a backslash before any other byte is that byte. Escapes are decoded before the key is
     *    split off, so they do not protect a separator.
     *  - `%pragma include "path"` reads another file at this point, unless this load has read it
     *    already. The path follows the directory of the file that includes it.
     *  - `%pragma severity error|warning|note` sets `sev` for the rest of this file and what it
     *    includes. Other lines that begin with "%" are ignored.
     *
     * Includes may nest as deep as the process can hold files open; one beyond that is a file that
     * cannot be opened. Each file is read once, however its path is spelled: paths are compared with
     * links, "." and ".." resolved, so that every cycle ends. Messages contain the path as spelled.
     *
     * A path never leads to the root by a "/" in front, but it may climb by "..". What it names is
     * opened and read to its end, whatever it is: a pipe is waited for, a device that never ends is
     * read until memory is out. So a properties file is to be trusted like the program that reads it.
     *
     * @param filepath          names the file in messages, and its directory is where its includes
     *                          are; may be empty.
     * @param warnings          receives a line `WARNING: <name>:<line>: Overriding property "<key>"`
     *                          for each key that was there already, when `sev` is above SEV_ERROR.
     * @param notes             receives nothing.
     * @param sev               what is reported.
     * @param keep_trailing_ws  keeps the white space behind values, a CR before the line feed too.
     *
     * @return `is`. A stream that fails ends the file without a message.
     * @throws std::invalid_argument  `ERROR: <name>:<line>: ` and what is wrong in that line.
     * @throws std::runtime_error     the same, for an included file that cannot be opened.
     *         What was read before it stays in the table.
     */
    std::istream& load(std::istream& is, String filepath, std::ostringstream& warnings,
                       std::ostringstream& notes, Severity sev, bool keep_trailing_ws = false);

    /**
     * Writes "#" and `header` unless it is empty, "#" and the local time, then each property as
     * "key=value" in the order of keys, and flushes the stream.
     *
     * Control bytes, backslashes and bytes above 126 are escaped and nothing else is: load() does
     * not read back the keys with white space or a separator in them or "#", "!", "%" in front, nor
     * white space in front of a value.
     *
     * @return `os`, which tells whether the writing went well.
     */
    std::ostream& store(std::ostream& os, const String& header) const;

    /**
     * Takes over the properties of `src`, replacing the values of keys that are there already;
     * with `deep`, as strings that share nothing with those of `src`.
     */
    Properties& addAll(const Properties& src, bool deep = false)
    {
        src.addAllTo(*this, deep);
        return *this;
    }

    /** Whether there is a property of exactly that key. */
    bool containsKey(const String& key) const;

    /**
     * The value of `key`, or `default_val` itself if there is none: a temporary default must be kept
     * for as long as the result is used. The value of a key stays until it is replaced.
     */
    const String& getProperty(const String& key, const String& default_val) const;

    /** The value of `key`, or an empty string that lives as long as the table. */
    const String& getProperty(const String& key) const;

    /**
     * Enters a property or replaces its value.
     *
     * @throws std::invalid_argument  "empty key not allowed"
     */
    void setProperty(const String& key, const String& val);

    /**
     * The properties whose keys begin with `prefix`, which is taken off unless `strip_prefix` is
     * false. It takes the time of a look-up and of what it selects. `deep` has no effect.
     *
     * @return a new table, which the caller deletes.
     * @throws std::invalid_argument  "empty key not allowed", when a key is the prefix itself and it
     *                                is to be taken off.
     */
    Properties* getProperties(const String& prefix, bool strip_prefix = true, bool deep = false) const;

    /**
     * The same for several prefixes, one after the other into one table: where stripped keys
     * coincide, the later prefix wins. `prefixes` may be null if `num_prefixes` is 0.
     *
     * @throws std::invalid_argument  also "null prefix list not allowed", "null prefix not allowed"
     */
    Properties* getProperties(const String** prefixes, unsigned int num_prefixes, bool strip_prefix = true,
                              bool deep = false) const;

    /** Whether there is no property. */
    bool empty() const noexcept
    {
        return data.empty();
    }

    /** The number of properties. */
    std::size_t size() const noexcept
    {
        return data.size();
    }

    /**
     * The first property in the order of keys, or end(). Needs the table for itself, if only while values are
     * written.
     */
    Iterator begin() noexcept;
    /** The position behind the last property. */
    Iterator end() noexcept;
    /** The first property in the order of keys, for reading. */
    ConstIterator begin() const noexcept;
    /** The position behind the last property, for reading. */
    ConstIterator end() const noexcept;

private:
    class Loader;

    /** Reads one file and what it includes; `includes` holds the files of this load. */
    std::istream& load_r(std::istream& is, String filepath, std::ostringstream& warnings,
                         std::ostringstream& notes, Severity sev, bool keep_trailing_ws);

    void addAllTo(Properties& dest, bool deep) const;
    void addSelectionTo(Properties& dest, const String& prefix, bool strip_prefix) const;

    Data data;
    /** The files of the current load, each as spelled and as resolved: the guard against reading one twice.
     */
    std::map<String, bool> includes;
    /** What a key that is missing refers to. */
    const String EMPTY;
};

}

#endif
