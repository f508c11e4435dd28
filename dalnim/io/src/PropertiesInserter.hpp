#ifndef DALNIM_IO_SRC_PROPERTIESINSERTER_HPP
#define DALNIM_IO_SRC_PROPERTIESINSERTER_HPP

#include <dalnim/String.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace com::kor::dal::nim::io {

/**
 * Inserts properties into a table one after the other. A later value of a key replaces an earlier one.
 *
 * The keys of most files are sorted, or consist of sorted groups: each property then belongs right after the
 * one before it, and is inserted there without a lookup. In a large table whose keys come in no order, each
 * lookup misses the cache at every step. Such properties are collected, and sorted before they are inserted.
 */
class PropertiesInserter
{
public:
    typedef std::map<String, String> Table;

    /** Nothing else may change `table` as long as the inserter exists. */
    explicit PropertiesInserter(Table& table);

    /** Inserts a property. Returns true if the key already existed. */
    bool insert(std::string_view key, std::string_view value);

    /** Inserts a property now or in a later call, at the latest in flush(). */
    void insertDeferred(std::string_view key, std::string_view value);

    /** Inserts all pending properties. */
    void flush();

private:
    /** The 16 bytes that follow the common prefix of the pending keys, in two numbers that compare as they
     * do. */
    typedef std::pair<std::uint64_t, std::uint64_t> KeyPrefix;

    /** A property that was collected: its key in `texts`, directly followed by its value. */
    struct PendingEntry
    {
        KeyPrefix keyPrefix;
        std::size_t offset;
        std::uint32_t keyLength;
        std::uint32_t valueLength;
    };

    std::string_view keyOf(const PendingEntry& entry) const;
    KeyPrefix keyPrefixOf(const PendingEntry& entry) const;
    bool insertNow(std::string_view key, std::string_view value);
    Table::iterator findPosition();
    bool isMostlyUnsorted() const;

    Table& target;
    /** The property that was inserted last, or the end of the table. */
    Table::iterator last;
    String keyBuffer;

    /** Number of properties inserted, and of those that did not belong after the one before them. */
    std::size_t inserted = 0;
    std::size_t outOfOrder = 0;

    std::vector<PendingEntry> pending;
    String texts;
    /** Length of the prefix that all pending keys have in common. */
    std::size_t commonPrefix = 0;
};

}

#endif
