#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/ModuleLimits.hpp>

#include <algorithm>
#include <charconv>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

namespace com::kor::dal::nim::log {

namespace {

constexpr char WHITE_SPACE[] = " \t\n\v\f\r";
constexpr double NANOS_PER_SECOND = 1e9;

bool isLegal(const ModuleLimits::Limit& limit)
{
    const auto isNumber = [](std::uint32_t number) {
        return number >= 1 && number <= ModuleLimits::Limit::MAX_NUMBER;
    };
    return !limit.modules.empty() && limit.modules.find_first_of(WHITE_SPACE) == String::npos
           && isNumber(limit.recordsPerSecond) && isNumber(limit.burst) && limit.highest > Severity_NONE
           && limit.highest <= Severity_MAX;
}

bool areEqual(const ModuleLimits::Limits& left, const ModuleLimits::Limits& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const ModuleLimits::Limit& a, const ModuleLimits::Limit& b) {
                          return a.modules == b.modules && a.recordsPerSecond == b.recordsPerSecond
                                 && a.burst == b.burst && a.highest == b.highest;
                      });
}

/** Returns true if the name is the entry, or begins with the part of the entry before its last "*". */
bool matches(const String& entry, const String& name)
{
    return entry.back() == '*' ? name.compare(0, entry.size() - 1, entry, 0, entry.size() - 1) == 0
                               : name == entry;
}

/** Removes the part up to the next slash, or all of the text, and returns it. */
String takePart(String& text)
{
    const std::size_t end = std::min(text.find('/'), text.size());
    String part = text.substr(0, end);
    text.erase(0, end + 1);
    return part;
}

bool readNumber(const String& text, std::uint32_t& number)
{
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

}

void LimitReport::write(std::ostream& os) const
{
    os << "The module \"" << module << '"';
    if (isBegin) {
        os << " exceeds " << std::to_string(recordsPerSecond)
           << (recordsPerSecond == 1 ? " record" : " records") << " per second: further ones are held back";
    } else {
        os << " is within its limit again: " << std::to_string(heldBack)
           << (heldBack == 1 ? " record was" : " records were") << " held back";
    }
}

void ModuleLimits::exchange(Limits& fresh, Buckets& old) noexcept
{
    if (!areEqual(current, fresh)) {
        current.swap(fresh);
        states.swap(old);
        floods = 0;
    }
}

const ModuleLimits::Limit* ModuleLimits::find(const String& module) const noexcept
{
    const auto found = std::find_if(current.begin(), current.end(),
                                    [&module](const Limit& limit) { return matches(limit.modules, module); });
    return found == current.end() ? nullptr : &*found;
}

bool ModuleLimits::admit(const String& module, Severity severity, std::int64_t now, Reports& reports)
{
    if (floods != 0) {
        reportEnds(now, reports);
    }
    const Limit* const limit = find(module);
    if (limit == nullptr || severity > limit->highest) {
        return true;
    }
    Bucket& bucket =
        states.try_emplace(module, Bucket{static_cast<double>(limit->burst), now, 0, 0, false}).first->second;
    // The clock is read before the lock is acquired, so that it may seem to run backwards.
    const auto passed = static_cast<double>(std::max<std::int64_t>(now - bucket.filled, 0));
    bucket.tokens = std::min(static_cast<double>(limit->burst),
                             bucket.tokens + passed * limit->recordsPerSecond / NANOS_PER_SECOND);
    bucket.filled = std::max(bucket.filled, now);
    if (bucket.tokens >= 1) {
        bucket.tokens -= 1;
        return true;
    }
    if (!bucket.isReported) {
        reports.push_back({module, true, limit->recordsPerSecond, 0});
        bucket.isReported = true;
    }
    if (bucket.heldBack == 0) {
        ++floods;
    }
    ++bucket.heldBack;
    bucket.lastHeldBack = now;
    return false;
}

void ModuleLimits::reportEnds(std::int64_t now, Reports& reports)
{
    for (auto& [module, bucket] : states) {
        if (bucket.heldBack != 0 && now - bucket.lastHeldBack >= QUIET_TIME) {
            reports.push_back({module, false, 0, bucket.heldBack});
            bucket.heldBack = 0;
            bucket.isReported = false;
            --floods;
        }
    }
}

void ModuleLimits::undo(const LimitReport& report, std::int64_t now) noexcept
{
    const auto found = states.find(report.module);
    if (found == states.end()) {
        // The limits have changed.
        return;
    }
    Bucket& bucket = found->second;
    if (report.isBegin) {
        bucket.isReported = false;
        return;
    }
    if (bucket.heldBack == 0) {
        ++floods;
        // Over, but not reported yet.
        bucket.lastHeldBack = now - QUIET_TIME;
    }
    bucket.heldBack += report.heldBack;
    bucket.isReported = true;
}

ModuleLimits::Reports ModuleLimits::ends(const Buckets& buckets)
{
    Reports reports;
    for (const auto& [module, bucket] : buckets) {
        if (bucket.heldBack != 0) {
            reports.push_back({module, false, 0, bucket.heldBack});
        }
    }
    return reports;
}

void ModuleLimits::check(const Limits& limits)
{
    if (!std::all_of(limits.begin(), limits.end(), isLegal)) {
        throw std::out_of_range("Illegal Module Limit");
    }
}

String ModuleLimits::text(const Limits& limits)
{
    String text;
    for (const Limit& limit : limits) {
        text += (text.empty() ? "" : " ") + limit.modules + '=' + std::to_string(limit.recordsPerSecond) + '/'
                + std::to_string(limit.burst);
        if (limit.highest != Severity_WARNING) {
            text += '/' + getSeverityName(limit.highest);
        }
    }
    return text;
}

bool ModuleLimits::parse(const String& text, Limit& limit)
{
    const std::size_t equals = text.rfind('=');
    if (equals == String::npos || text.back() == '/') {
        return false;
    }
    limit.modules = text.substr(0, equals);
    String rest = text.substr(equals + 1);
    if (!readNumber(takePart(rest), limit.recordsPerSecond)) {
        return false;
    }
    limit.burst = limit.recordsPerSecond;
    if (!rest.empty() && !readNumber(takePart(rest), limit.burst)) {
        return false;
    }
    if (!rest.empty()) {
        try {
            limit.highest = getSeverityId(rest);
        } catch (const std::out_of_range&) {
            return false;
        }
    }
    return isLegal(limit);
}

}
