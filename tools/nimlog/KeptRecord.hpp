#ifndef DALNIM_TOOLS_NIMLOG_KEPTRECORD_HPP
#define DALNIM_TOOLS_NIMLOG_KEPTRECORD_HPP

#include "Fields.hpp"

#include <string>

namespace nimlog {

/** A copy of a record, with its own text. */
class KeptRecord
{
public:
    explicit KeptRecord(const Record& original)
    {
        assign(original);
    }

    // The views of the record refer to the text, which a move would place elsewhere.
    KeptRecord(const KeptRecord&) = delete;
    KeptRecord& operator=(const KeptRecord&) = delete;

    /** Stores another record. Reuses the storage of the text. */
    void assign(const Record& original)
    {
        text.assign(original.whole);
        kept = original;
        kept.whole = text;
        rebase(kept.fields, original.whole.data(), text.data());
    }

    const Record& record() const
    {
        return kept;
    }

private:
    std::string text;
    Record kept = {};
};

}

#endif
