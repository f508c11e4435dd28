#include "FieldCondition.hpp"

#include <dalnim/log/FieldReader.hpp>
#include <support/Errors.hpp>

#include <cstring>

namespace nimlog {

using com::kor::dal::nim::log::FieldReader;

FieldCondition::FieldCondition(const std::string& condition)
{
    const std::size_t equals = condition.find('=');
    if (equals != std::string::npos) {
        isNegated = equals != 0 && condition[equals - 1] == '!';
        name = condition.substr(0, equals - (isNegated ? 1 : 0));
        value = condition.substr(equals + 1);
        begin = name + '=';
    }
    // A name is valid if the library reads it as one.
    const std::string field = name + "=x";
    FieldReader reader(field);
    if (!reader.next() || reader.name() != name) {
        throw nimtools::UsageError("\"" + condition + "\" is not a condition: use NAME=VALUE or NAME!=VALUE");
    }
}

bool FieldCondition::holdsFor(std::string_view text) const
{
    if (memmem(text.data(), text.size(), begin.data(), begin.size()) != nullptr) {
        FieldReader fields(text);
        while (fields.next()) {
            if (fields.name() == name && fields.hasValue(value)) {
                return !isNegated;
            }
        }
    }
    return isNegated;
}

}
