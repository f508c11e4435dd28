#ifndef DALNIM_TOOLS_NIMLOG_FILTER_HPP
#define DALNIM_TOOLS_NIMLOG_FILTER_HPP

#include "FieldCondition.hpp"
#include "Options.hpp"
#include "RecordSplitter.hpp"
#include "TextPattern.hpp"

#include <qv/rtlapi/RX_Wildcard.hpp>

#include <map>
#include <memory>

namespace nimlog {

/** Passes on the records that the options select. */
class Filter : public RecordSink
{
public:
    /** @throws UsageError if a module pattern, a regular expression or a condition is invalid */
    Filter(const Options& given, RecordSink& nextSink);

    void consume(const Record& record) override;

    /** Returns the number of records left out because they lack a field that is filtered by. */
    std::uint64_t missingFields() const
    {
        return missingFieldsCount;
    }

private:
    bool passes(const Fields& fields);
    bool isModuleSelected(std::string_view module);
    bool hasText(std::string_view text);
    bool hasFields(std::string_view text) const;

    const Options& options;
    RecordSink& next;
    /** The fields that are filtered by, as bits of log::Mask. */
    unsigned int requiredFields = 0;
    std::vector<std::unique_ptr<RX_Wildcard>> patterns;
    /** Cached results of the patterns, by module name. */
    std::map<std::string, bool, std::less<>> modules;
    std::vector<TextPattern> texts;
    std::vector<FieldCondition> conditions;
    std::uint64_t missingFieldsCount = 0;
};

}

#endif
