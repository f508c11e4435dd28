#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/PropertiesIntake.hpp>

#include <algorithm>
#include <iterator>

namespace com::kor::dal::nim::io {

namespace {

/** From this size on, a table is too large for the caches that are near. */
constexpr std::size_t LARGE_TABLE = 4096;

/** How much is collected, in bytes and in properties, before it is entered. */
constexpr std::size_t TEXT_LIMIT = 8 * 1024 * 1024;
constexpr std::size_t COUNT_LIMIT = 128 * 1024;

}

PropertiesIntake::PropertiesIntake(Table& table)
    : target(table), last(table.end())
{
}

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
    const Waiting property = {texts.size(), key.size(), value.size()};
    texts.append(key).append(value);
    waiting.push_back(property);
    if (texts.size() >= TEXT_LIMIT || waiting.size() >= COUNT_LIMIT) {
        flush();
    }
}

void PropertiesIntake::flush()
{
    const auto key_of = [this](const Waiting& property) {
        return std::string_view(texts).substr(property.offset, property.key_length);
    };
    // Of one key the latest comes last, and stays.
    std::sort(waiting.begin(), waiting.end(), [&key_of](const Waiting& l, const Waiting& r) {
        const int order = key_of(l).compare(key_of(r));
        return order < 0 || (order == 0 && l.offset < r.offset);
    });
    for (const Waiting& property : waiting) {
        const std::size_t value_offset = property.offset + property.key_length;
        enterNow(key_of(property), std::string_view(texts).substr(value_offset, property.value_length));
    }
    waiting.clear();
    texts.clear();
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
