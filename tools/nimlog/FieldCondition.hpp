#ifndef DALNIM_TOOLS_NIMLOG_FIELDCONDITION_HPP
#define DALNIM_TOOLS_NIMLOG_FIELDCONDITION_HPP

#include <string>
#include <string_view>

namespace nimlog {

/** A condition on the fields in the text of a record, such as `user=17` or `user!=17`. */
class FieldCondition
{
public:
    /** @throws UsageError if the text is not a condition */
    explicit FieldCondition(const std::string& condition);

    /**
     * Returns true if a field of the text has the value or, if the condition is negated, if none has it.
     */
    bool holdsFor(std::string_view text) const;

private:
    std::string name;
    std::string value;
    /** The name and "=", which every text with such a field contains. */
    std::string begin;
    bool isNegated = false;
};

}

#endif
