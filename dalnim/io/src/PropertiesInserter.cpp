#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/PropertiesInserter.hpp>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace com::kor::dal::nim::io {

namespace {

/** From this size of a table on, sorting takes less time than looking up the position of each property. */
constexpr std::size_t LARGE_TABLE = 1024;

/** Number of bytes and of properties that are collected before they are inserted. */
constexpr std::size_t TEXT_LIMIT = std::size_t(8) * 1024 * 1024;
constexpr std::size_t COUNT_LIMIT = std::size_t(128) * 1024;

}

PropertiesInserter::PropertiesInserter(Table& table) : target(table), last(table.end()) {}

bool PropertiesInserter::insert(std::string_view key, std::string_view value)
{
    flush();
    return insertNow(key, value);
}

void PropertiesInserter::insertDeferred(std::string_view key, std::string_view value)
{
    if (pending.empty() && !isMostlyUnsorted()) {
        insertNow(key, value);
        return;
    }
    if (texts.size() + key.size() + value.size() > TEXT_LIMIT || pending.size() == COUNT_LIMIT) {
        flush();
        if (key.size() + value.size() > TEXT_LIMIT) {
            insertNow(key, value);
            return;
        }
    }
    if (pending.empty()) {
        commonPrefix = key.size();
    } else {
        const std::string_view first = keyOf(pending.front());
        commonPrefix = std::min(commonPrefix, key.size());
        const auto end = first.begin() + static_cast<std::ptrdiff_t>(commonPrefix);
        commonPrefix =
            static_cast<std::size_t>(std::mismatch(first.begin(), end, key.begin()).first - first.begin());
    }
    pending.push_back({KeyPrefix(), texts.size(), static_cast<std::uint32_t>(key.size()),
                       static_cast<std::uint32_t>(value.size())});
    texts.append(key).append(value);
}

void PropertiesInserter::flush()
{
    for (PendingEntry& entry : pending) {
        entry.keyPrefix = keyPrefixOf(entry);
    }
    // The latest value of a key comes last, and replaces the others.
    std::sort(pending.begin(), pending.end(), [this](const PendingEntry& l, const PendingEntry& r) {
        if (l.keyPrefix != r.keyPrefix) {
            return l.keyPrefix < r.keyPrefix;
        }
        const int order = keyOf(l).compare(keyOf(r));
        if (order != 0 || l.offset != r.offset) {
            return order != 0 ? order < 0 : l.offset < r.offset;
        }
        // An entry without key and value has the offset of the following one.
        return l.valueLength < r.valueLength;
    });
    for (const PendingEntry& entry : pending) {
        const std::string_view key = keyOf(entry);
        insertNow(key, std::string_view(key.data() + key.size(), entry.valueLength));
    }
    pending.clear();
    texts.clear();
}

std::string_view PropertiesInserter::keyOf(const PendingEntry& entry) const
{
    return std::string_view(texts.data() + entry.offset, entry.keyLength);
}

PropertiesInserter::KeyPrefix PropertiesInserter::keyPrefixOf(const PendingEntry& entry) const
{
    const std::string_view rest = keyOf(entry).substr(commonPrefix);
    std::uint64_t bytes[2] = {0, 0};
    std::memcpy(bytes, rest.data(), std::min(rest.size(), sizeof bytes));
    return KeyPrefix(__builtin_bswap64(bytes[0]), __builtin_bswap64(bytes[1]));
}

bool PropertiesInserter::insertNow(std::string_view key, std::string_view value)
{
    keyBuffer.assign(key);
    const Table::iterator position = findPosition();
    const bool exists = position != target.end() && position->first == key;
    if (exists) {
        position->second.assign(value);
        last = position;
    } else {
        last = target.emplace_hint(position, keyBuffer, value);
    }
    return exists;
}

/** Returns the position of the key in `keyBuffer`, or the one before which it belongs. */
PropertiesInserter::Table::iterator PropertiesInserter::findPosition()
{
    ++inserted;
    if (!target.empty() && std::prev(target.end())->first < keyBuffer) {
        return target.end();
    }
    if (last != target.end() && last->first < keyBuffer) {
        const Table::iterator next = std::next(last);
        if (next == target.end() || keyBuffer <= next->first) {
            return next;
        }
    }
    ++outOfOrder;
    return target.lower_bound(keyBuffer);
}

bool PropertiesInserter::isMostlyUnsorted() const
{
    return target.size() >= LARGE_TABLE && outOfOrder > inserted / 2;
}

}
