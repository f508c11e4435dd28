#ifndef DALNIM_TOOLS_NIMLOG_JSONTEXT_HPP
#define DALNIM_TOOLS_NIMLOG_JSONTEXT_HPP

#include <string>
#include <string_view>

namespace nimlog {

/** Appends a JSON string. Each ill-formed UTF-8 sequence is replaced by U+FFFD. */
void appendJson(std::string& to, std::string_view text);

}

#endif
