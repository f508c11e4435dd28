#ifndef DALNIM_TOOLS_NIMLOG_JSONTEXT_HPP
#define DALNIM_TOOLS_NIMLOG_JSONTEXT_HPP

#include <string>
#include <string_view>

namespace nimlog {

/** Adds a text as a JSON string. What is not UTF-8 becomes U+FFFD, one for each ill-formed piece. */
void appendJson(std::string& to, std::string_view text);

}

#endif
