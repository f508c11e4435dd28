#include <dalnim/dalbase.hpp>

#include <dalnim/type/RegExp.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::type {

RegExp::RegExp(const String& exp) : regexp(RX_String::none, RX_Wildcard::WILD)
{
    const sys::StackTrack track("RegExp()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    sys::internal::translateRXErrors(
        [&] { regexp.setPattern(RX_String(exp.c_str(), RX_String::NPOS), RX_Wildcard::REGEXP); });
}

RegExp::~RegExp() = default;

bool RegExp::matches(const String& str) const
{
    return regexp.matches(str.c_str()) == 1;
}

}
