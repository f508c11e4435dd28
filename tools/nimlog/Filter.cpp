#include "Filter.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/type/StringOps.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <support/Errors.hpp>

#include <algorithm>

namespace nimlog {

namespace log = com::kor::dal::nim::log;
using com::kor::dal::nim::type::StringOps;

namespace {

/** Names are without limit; what is known of them is not. */
constexpr std::size_t MOST_NAMES = 10000;

}

Filter::Filter(const Options& given, RecordSink& nextSink) : options(given), next(nextSink)
{
    for (const std::string& pattern : options.modules) {
        try {
            patterns.push_back(
                std::make_unique<RX_Wildcard>(StringOps::convNIMStrToRXString(pattern), RX_Wildcard::WILD));
        } catch (const RX_Exception&) {
            throw nimtools::UsageError("\"" + pattern + "\" is no pattern for modules");
        }
    }
    needed |= options.severity != log::Severity_NONE ? log::Mask_SEVERITY : 0U;
    needed |= options.modules.empty() ? 0U : log::Mask_MODULENAME;
    needed |= options.threads.empty() ? 0U : log::Mask_THREADID;
    needed |= options.since || options.until ? log::Mask_DATETIME : 0U;
}

void Filter::take(const Record& record)
{
    if (needed == 0) {
        next.take(record);
    } else if ((record.fields.present & needed) == needed) {
        if (passes(record.fields)) {
            next.take(record);
        }
    } else if (record.hasPrefix) {
        ++lackingCount;
    }
}

bool Filter::passes(const Fields& fields)
{
    const auto isThread = [&fields](const std::string& thread) { return fields.thread == thread; };
    return fields.severity >= options.severity && (!options.since || fields.dateTime.when >= *options.since)
           && (!options.until || fields.dateTime.when <= *options.until)
           && (options.threads.empty()
               || std::any_of(options.threads.begin(), options.threads.end(), isThread))
           && (patterns.empty() || isModuleAskedFor(fields.module));
}

bool Filter::isModuleAskedFor(std::string_view module)
{
    const auto known = modules.find(module);
    if (known != modules.end()) {
        return known->second;
    }
    const std::string name(module);
    const bool isAskedFor = std::any_of(patterns.begin(), patterns.end(), [&name](const auto& pattern) {
        return pattern->matches(name.c_str()) != 0;
    });
    if (modules.size() < MOST_NAMES) {
        modules.emplace(name, isAskedFor);
    }
    return isAskedFor;
}

}
