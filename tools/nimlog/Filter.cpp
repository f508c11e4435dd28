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

/** Limit of the cache of module names: a log may contain any number of them. */
constexpr std::size_t MAX_CACHED_NAMES = 10000;

}

Filter::Filter(const Options& given, RecordSink& nextSink) : options(given), next(nextSink)
{
    for (const std::string& pattern : options.modules) {
        try {
            patterns.push_back(
                std::make_unique<RX_Wildcard>(StringOps::convNIMStrToRXString(pattern), RX_Wildcard::WILD));
        } catch (const RX_Exception&) {
            throw nimtools::UsageError("\"" + pattern + "\" is not a valid module pattern");
        }
    }
    texts.reserve(options.texts.size());
    for (const std::string& text : options.texts) {
        texts.emplace_back(text, options.fixedStrings, options.ignoreCase);
    }
    for (const std::string& condition : options.conditions) {
        conditions.emplace_back(condition);
    }
    requiredFields |= options.severity != log::Severity_NONE ? log::Mask_SEVERITY : 0U;
    requiredFields |= options.modules.empty() ? 0U : log::Mask_MODULENAME;
    requiredFields |= options.threads.empty() ? 0U : log::Mask_THREADID;
    requiredFields |= options.since || options.until ? log::Mask_DATETIME : 0U;
}

void Filter::consume(const Record& record)
{
    const unsigned int known =
        record.fields.present
        | (record.fields.hasPriority ? static_cast<unsigned int>(log::Mask_SEVERITY) : 0U);
    if ((known & requiredFields) != requiredFields) {
        missingFieldsCount += record.hasPrefix ? 1U : 0U;
    } else if ((requiredFields == 0 || passes(record.fields))
               && (conditions.empty() || hasFields(record.text()))
               && (texts.empty() || hasText(record.text()))) {
        next.consume(record);
    }
}

bool Filter::passes(const Fields& fields)
{
    const auto isThread = [&fields](const std::string& thread) { return fields.thread == thread; };
    return fields.severity >= options.severity && (!options.since || !(fields.dateTime.when < *options.since))
           && (!options.until || !(*options.until < fields.dateTime.when))
           && (options.threads.empty()
               || std::any_of(options.threads.begin(), options.threads.end(), isThread))
           && (patterns.empty() || isModuleSelected(fields.module));
}

bool Filter::hasFields(std::string_view text) const
{
    return std::all_of(conditions.begin(), conditions.end(),
                       [text](const FieldCondition& condition) { return condition.holdsFor(text); });
}

bool Filter::hasText(std::string_view text)
{
    return std::any_of(texts.begin(), texts.end(),
                       [text](TextPattern& pattern) { return pattern.occursIn(text); });
}

bool Filter::isModuleSelected(std::string_view module)
{
    const auto known = modules.find(module);
    if (known != modules.end()) {
        return known->second;
    }
    const std::string name(module);
    const bool isSelected = std::any_of(patterns.begin(), patterns.end(), [&name](const auto& pattern) {
        return pattern->matches(name.c_str()) != 0;
    });
    if (modules.size() < MAX_CACHED_NAMES) {
        modules.emplace(name, isSelected);
    }
    return isSelected;
}

}
