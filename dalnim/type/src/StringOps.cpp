#include <dalnim/dalbase.hpp>

#include <dalnim/type/StringOps.hpp>

#include <algorithm>
#include <cctype>
#include <cstring>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::type {

namespace {

bool isSpace(char c) noexcept
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

}

String& StringOps::replace(String& target, char search_char, char replace_char)
{
    std::replace(target.begin(), target.end(), search_char, replace_char);
    return target;
}

char* StringOps::replace(char* target, char search_char, char replace_char)
{
    if (target != nullptr) {
        std::replace(target, target + std::strlen(target), search_char, replace_char);
    }
    return target;
}

String& StringOps::replace(String& target, const String& search_str, const String& replace_str)
{
    const std::size_t search_length = search_str.size();
    std::size_t found = search_length == 0 ? String::npos : target.find(search_str);
    if (found == String::npos) {
        return target;
    }

    // Builds a new string: the time is linear, and `target` may be one of the other arguments.
    String result;
    std::size_t pos = 0;
    do {
        result.append(target, pos, found - pos);
        result += replace_str;
        pos = found + search_length;
        found = target.find(search_str, pos);
    } while (found != String::npos);
    result.append(target, pos, String::npos);
    target.swap(result);
    return target;
}

String& StringOps::toLower(String& target)
{
    return target = convNIMStrToRXString(target).toLower().data();
}

String& StringOps::toUpper(String& target)
{
    return target = convNIMStrToRXString(target).toUpper().data();
}

String StringOps::trimWS(const String& source)
{
    const auto first = std::find_if_not(source.begin(), source.end(), isSpace);
    const auto last = std::find_if_not(source.rbegin(), std::make_reverse_iterator(first), isSpace);
    return String(first, last.base());
}

char* StringOps::trimWS(char* target)
{
    if (target == nullptr) {
        return nullptr;
    }
    while (isSpace(*target)) {
        ++target;
    }
    char* end = target + std::strlen(target);
    while (end != target && isSpace(end[-1])) {
        --end;
    }
    *end = '\0';
    return target;
}

RX_String StringOps::convNIMStrToRXString(const String& nimStr)
{
    return RX_String(nimStr.c_str(), RX_String::NPOS);
}

String StringOps::convRXStringToNIMStr(const RX_String& rxStr)
{
    return rxStr.data();
}

}
