#ifndef DALNIM_TYPE_STDVECTORS_HPP
#define DALNIM_TYPE_STDVECTORS_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/StringPair.hpp>

#include <string>
#include <vector>

/**
 * @file
 * The vectors of the library: of strings, of pairs of strings and of the arithmetic types. The library
 * instantiates them for its own use and does not export their code. Users compile their own, because the
 * implementation of a vector belongs to the standard library that they are built with, which may be later.
 */

namespace com::kor::dal::nim::type {

/** The common list type of the library. */
typedef nim::StringVector StringVector;
/** @name Lists of further types */
/** @{ */
/** Like StringVector. */
typedef std::vector<std::wstring> WideStringVector;
typedef std::vector<StringPair> StringPairVector;
typedef std::vector<WideStringPair> WideStringPairVector;
/** @} */

}

#endif
