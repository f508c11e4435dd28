#include "TextPattern.hpp"

#include <support/Errors.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace nimlog {

namespace {

constexpr std::string_view SPECIAL_CHARACTERS = ".[]()*+?{}|^$\\";

/** Stores the string that an expression matches. Returns false if it matches other strings, too. */
bool readLiteral(std::string_view expression, std::string& into)
{
    for (std::size_t at = 0; at < expression.size(); ++at) {
        if (expression[at] == '\\') {
            ++at;
            // Other escapes, such as "\w", have meanings of their own.
            if (at == expression.size()
                || SPECIAL_CHARACTERS.find(expression[at]) == std::string_view::npos) {
                return false;
            }
        } else if (SPECIAL_CHARACTERS.find(expression[at]) != std::string_view::npos) {
            return false;
        }
        into += expression[at];
    }
    return true;
}

/** Only the case of ASCII letters is ignored, as by regexec() in the C locale. */
char toLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool contains(std::string_view text, std::string_view part)
{
    return memmem(text.data(), text.size(), part.data(), part.size()) != nullptr;
}

}

void TextPattern::Free::operator()(regex_t* compiled) const noexcept
{
    regfree(compiled);
    delete compiled;
}

TextPattern::TextPattern(const std::string& pattern, bool isFixed, bool ignoreCase) : ignoresCase(ignoreCase)
{
    if (isFixed) {
        literal = pattern;
    } else if (!readLiteral(pattern, literal)) {
        auto compiled = std::make_unique<regex_t>();
        const int error = regcomp(compiled.get(), pattern.c_str(),
                                  REG_EXTENDED | REG_NEWLINE | REG_NOSUB | (ignoreCase ? REG_ICASE : 0));
        if (error != 0) {
            std::array<char, 256> reason = {};
            regerror(error, compiled.get(), reason.data(), reason.size());
            throw nimtools::UsageError("\"" + pattern
                                       + "\" is not a valid regular expression: " + reason.data());
        }
        expression.reset(compiled.release());
    }
    if (ignoreCase) {
        std::transform(literal.begin(), literal.end(), literal.begin(), toLower);
    }
}

bool TextPattern::occursIn(std::string_view text)
{
    if (expression) {
        return matchesExpression(text);
    }
    if (!ignoresCase) {
        return contains(text, literal);
    }
    copy.resize(text.size());
    std::transform(text.begin(), text.end(), copy.begin(), toLower);
    return contains(copy, literal);
}

bool TextPattern::matchesExpression(std::string_view text)
{
    // The bounds are passed, since the text may contain zero bytes. The copy ends in one, which regexec()
    // does not need then, but the address sanitizer does.
    copy.assign(text);
    regmatch_t bounds = {0, static_cast<regoff_t>(copy.size())};
    const int error = regexec(expression.get(), copy.c_str(), 1, &bounds, REG_STARTEND);
    if (error != 0 && error != REG_NOMATCH) {
        throw std::bad_alloc();
    }
    return error == 0;
}

}
