#ifndef DALNIM_TYPE_STRINGPAIR_HPP
#define DALNIM_TYPE_STRINGPAIR_HPP

#include <dalnim/String.hpp>

#include <string>
#include <utility>

namespace com::kor::dal::nim::type {

/** Two related strings, such as a name and its value. */
typedef std::pair<String, String> StringPair;
/** The same with wide characters. */
typedef std::pair<std::wstring, std::wstring> WideStringPair;

}

#endif
