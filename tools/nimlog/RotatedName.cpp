#include "RotatedName.hpp"

#include "TimeText.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace nimlog {

namespace {

constexpr std::array<Compression, 2> COMPRESSIONS = {{{".gz", "gzip"}, {".xz", "xz"}}};

/** Index of a file with the date 0 in its name. The last index is reserved as the end of a range. */
constexpr FileIndex OLDEST = static_cast<FileIndex>(-1) - 1;

/** Reads `count` digits at the start of a string, and removes them. Returns false if there are none. */
bool takeDigits(std::string_view& text, std::size_t count, int& into)
{
    const char* const end = text.data() + std::min(count, text.size());
    const auto [stop, error] = std::from_chars(text.data(), end, into);
    if (error != std::errc() || stop != text.data() + count || text[0] == '-') {
        return false;
    }
    text.remove_prefix(count);
    return true;
}

/** Removes a character at the start of a string. Returns false if the string starts with another one. */
bool takeIf(std::string_view& text, char c)
{
    const bool isThere = !text.empty() && text[0] == c;
    text.remove_prefix(isThere ? 1 : 0);
    return isThere;
}

bool readNumber(std::string_view text, FileIndex& into)
{
    std::size_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    // The log uses the canonical form only.
    const bool isCanonical = text.size() == 1 || (text.size() > 1 && text[0] != '0');
    into = number + 1;
    return error == std::errc() && stop == text.data() + text.size() && isCanonical
           && number < FIRST_DATED - 1;
}

/**
 * Reads a date such as "20261114", "2026-11-14", "2026111415", "20261114-150520" or "20261114-1794668720"
 * (seconds since 1970).
 */
bool readDate(std::string_view text, std::time_t& into)
{
    int year = 0;
    int month = 0;
    int day = 0;
    if (!takeDigits(text, 4, year)) {
        return false;
    }
    const bool hasDashes = takeIf(text, '-');
    if (!takeDigits(text, 2, month) || takeIf(text, '-') != hasDashes || !takeDigits(text, 2, day)
        || !toSeconds(year, month, day, into)) {
        return false;
    }
    const bool hasDash = takeIf(text, '-');
    if (hasDash && text.size() > 6) {
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), into);
        return error == std::errc() && stop == text.data() + text.size() && into >= 0;
    }
    for (const std::time_t seconds : {3600, 60, 1}) {
        int part = 0;
        if (text.empty()) {
            return seconds != 3600 || !hasDash;
        }
        if (!takeDigits(text, 2, part)) {
            return false;
        }
        into += part * seconds;
    }
    return text.empty();
}

}

const Compression* compressionOf(std::string_view name)
{
    const auto* const found =
        std::find_if(COMPRESSIONS.begin(), COMPRESSIONS.end(), [name](const Compression& compression) {
            const std::string_view suffix = compression.suffix;
            return name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
        });
    return found == COMPRESSIONS.end() ? nullptr : found;
}

bool readRotatedName(std::string_view end, RotatedName& into)
{
    into.compression = compressionOf(end);
    if (into.compression != nullptr) {
        end.remove_suffix(into.compression->suffix.size());
    }
    if (end.empty() || (end[0] != '.' && end[0] != '-')) {
        return false;
    }
    const bool mayBeNumber = end[0] == '.';
    end.remove_prefix(1);
    std::time_t date = 0;
    if (mayBeNumber && readNumber(end, into.index)) {
        return true;
    }
    if (!readDate(end, date) || date < 0 || static_cast<FileIndex>(date) > OLDEST - FIRST_DATED) {
        return false;
    }
    into.index = OLDEST - static_cast<FileIndex>(date);
    return true;
}

bool isRotatedFileOf(const std::string& path, const std::string& log)
{
    RotatedName unused = {};
    return path.compare(0, log.size(), log) == 0
           && readRotatedName(std::string_view(path).substr(log.size()), unused);
}

}
