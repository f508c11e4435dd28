#ifndef DALNIM_TOOLS_NIMLOG_FILTER_HPP
#define DALNIM_TOOLS_NIMLOG_FILTER_HPP

#include "Options.hpp"
#include "RecordSplitter.hpp"

#include <qv/rtlapi/RX_Wildcard.hpp>

#include <map>
#include <memory>

namespace nimlog {

/** Lets those records through that the options ask for. */
class Filter : public RecordSink
{
public:
    /** Throws UsageError for a bad pattern. */
    Filter(const Options& given, RecordSink& nextSink);

    void take(const Record& record) override;

    /** How many records were left out because they have none of the fields that were asked for. */
    std::uint64_t lacking() const
    {
        return lackingCount;
    }

private:
    bool passes(const Fields& fields);
    bool isModuleAskedFor(std::string_view module);

    const Options& options;
    RecordSink& next;
    /** Bits of the fields that are asked for. */
    unsigned int needed = 0;
    std::vector<std::unique_ptr<RX_Wildcard>> patterns;
    /** What the patterns said of the names so far. */
    std::map<std::string, bool, std::less<>> modules;
    std::uint64_t lackingCount = 0;
};

}

#endif
