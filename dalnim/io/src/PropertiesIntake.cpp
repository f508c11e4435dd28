#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/PropertiesIntake.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace com::kor::dal::nim::io {

namespace {

/** From this size on, sorting takes less than looking up the place of each property. */
constexpr std::size_t LARGE_TABLE = 1024;

/** Fewer properties than this are sorted by their whole keys. */
constexpr std::ptrdiff_t FEW = 8;

/** How much is collected, in bytes and in properties, before it is entered. */
constexpr std::size_t TEXT_LIMIT = std::size_t(8) * 1024 * 1024;
constexpr std::size_t COUNT_LIMIT = std::size_t(128) * 1024;

/** The first bytes of a text, the first one on top; what is missing counts as 0. */
std::uint64_t headOf(std::string_view text)
{
    std::uint64_t head = 0;
    std::memcpy(&head, text.data(), std::min(text.size(), sizeof head));
    return __builtin_bswap64(head);
}

}

PropertiesIntake::PropertiesIntake(Table& table) : target(table), last(table.end()) {}

bool PropertiesIntake::enter(std::string_view key, std::string_view value)
{
    flush();
    return enterNow(key, value);
}

void PropertiesIntake::enterLater(std::string_view key, std::string_view value)
{
    if (waiting.empty() && !isWithoutOrder()) {
        enterNow(key, value);
        return;
    }
    const Waiting property = {texts.size(), key.size(), value.size(), 0};
    texts.append(key).append(value);
    waiting.push_back(property);
    if (texts.size() >= TEXT_LIMIT || waiting.size() >= COUNT_LIMIT) {
        flush();
    }
}

void PropertiesIntake::flush()
{
    sort(waiting.begin(), waiting.end(), 0);
    for (const Waiting& property : waiting) {
        const std::size_t value_offset = property.offset + property.key_length;
        enterNow(keyOf(property), std::string_view(texts).substr(value_offset, property.value_length));
    }
    waiting.clear();
    texts.clear();
}

std::string_view PropertiesIntake::keyOf(const Waiting& property) const
{
    return std::string_view(texts).substr(property.offset, property.key_length);
}

/**
 * Sorts properties whose keys are alike in their first `known` bytes; of one key the latest comes last,
 * and stays. Keys are long, and alike for most of their length: so it goes by the first bytes in which
 * they differ, as numbers, and sorts each group that these leave together by those that follow.
 */
void PropertiesIntake::sort(WaitingIterator begin, WaitingIterator end, std::size_t known)
{
    std::size_t shortest = known;
    std::size_t alike = known;
    if (end - begin >= FEW) {
        const std::string_view sample = keyOf(*begin);
        shortest = alike = sample.size();
        for (WaitingIterator property = begin + 1; property != end; ++property) {
            const std::string_view key = keyOf(*property);
            shortest = std::min(shortest, key.size());
            alike = std::min(alike, shortest);
            const auto from = static_cast<std::ptrdiff_t>(std::min(known, alike));
            const auto to = static_cast<std::ptrdiff_t>(alike);
            const auto differs = std::mismatch(key.begin() + from, key.begin() + to, sample.begin() + from);
            alike = static_cast<std::size_t>(differs.first - key.begin());
        }
    }
    if (alike == shortest) {
        std::sort(begin, end, [this](const Waiting& l, const Waiting& r) {
            const int order = keyOf(l).compare(keyOf(r));
            return order < 0 || (order == 0 && l.isEarlier(r));
        });
        return;
    }

    for (WaitingIterator property = begin; property != end; ++property) {
        property->head = headOf(keyOf(*property).substr(alike));
    }
    std::sort(begin, end, [](const Waiting& l, const Waiting& r) { return l.head < r.head; });
    while (begin != end) {
        const std::uint64_t head = begin->head;
        const WaitingIterator behind =
            std::find_if(begin + 1, end, [head](const Waiting& property) { return property.head != head; });
        sort(begin, behind, alike);
        begin = behind;
    }
}

bool PropertiesIntake::enterNow(std::string_view key, std::string_view value)
{
    key_buffer.assign(key);
    const Table::iterator place = findPlace();
    const bool is_there = place != target.end() && place->first == key;
    if (is_there) {
        place->second.assign(value);
        last = place;
    } else {
        last = target.emplace_hint(place, key_buffer, value);
    }
    return is_there;
}

/** Where the key in the buffer is or belongs. */
PropertiesIntake::Table::iterator PropertiesIntake::findPlace()
{
    ++entered;
    if (!target.empty() && std::prev(target.end())->first < key_buffer) {
        return target.end();
    }
    if (last != target.end() && last->first < key_buffer) {
        const Table::iterator next = std::next(last);
        if (next == target.end() || key_buffer <= next->first) {
            return next;
        }
    }
    ++out_of_order;
    return target.lower_bound(key_buffer);
}

bool PropertiesIntake::isWithoutOrder() const
{
    return target.size() >= LARGE_TABLE && out_of_order > entered / 2;
}

}
