#ifndef DALNIM_IO_SRC_PROPERTIESINTAKE_HPP
#define DALNIM_IO_SRC_PROPERTIESINTAKE_HPP

#include <dalnim/String.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

namespace com::kor::dal::nim::io {

/**
 * Enters properties into a table, one after the other, where a later one replaces an earlier one.
 *
 * Most files have their keys in order, or in groups that are: there each property belongs behind the
 * one before it. In a large table without any order, on the other hand, each look-up misses the
 * cache at every step; such properties are collected, and sorted before they are entered.
 */
class PropertiesIntake
{
public:
    typedef std::map<String, String> Table;

    /** For a table that nobody else changes meanwhile. */
    explicit PropertiesIntake(Table& table);

    /** Enters a property, and tells whether its key was there already. */
    bool enter(std::string_view key, std::string_view value);

    /** Enters a property now or with one of the calls that follow, flush() at the latest. */
    void enterLater(std::string_view key, std::string_view value);

    /** Enters what has been collected. */
    void flush();

private:
    /** A property that was collected: its key in `texts`, and behind it its value. */
    struct Waiting
    {
        std::size_t offset;
        std::size_t key_length;
        std::size_t value_length;
        /** Eight bytes of the key as a number that orders as they do; for sort(). */
        std::uint64_t head;

        /** Of two with one key. One that has no text at all stands where the next one does. */
        bool isEarlier(const Waiting& r) const
        {
            return offset < r.offset || (offset == r.offset && value_length < r.value_length);
        }
    };
    typedef std::vector<Waiting>::iterator WaitingIterator;

    std::string_view keyOf(const Waiting& property) const;
    void sort(WaitingIterator begin, WaitingIterator end, std::size_t known);
    bool enterNow(std::string_view key, std::string_view value);
    Table::iterator findPlace();
    bool isWithoutOrder() const;

    Table& target;
    /** The property that was entered last, or the end of the table. */
    Table::iterator last;
    String key_buffer;

    /** How many were entered as they came, and how many of those did not belong behind the last one. */
    std::size_t entered = 0;
    std::size_t out_of_order = 0;

    std::vector<Waiting> waiting;
    String texts;
};

}

#endif
