#include <qv/rtlapi/RX_Wildcard.hpp>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include <regex.h>

#include <qv/pmx/WildPattern.hpp>
#include <qv/pmx/errors.h>
#include <qv/rtlapi/RX_ExError.hpp>

namespace {

/** Its code may be an error code of `regcomp`, which must not be formatted as an `errno` value. */
class BadPattern : public RX_ExError
{
public:
    BadPattern(int code, const char* reason, const char* pattern)
        : RX_ExError(code, RX_String(reason), RX_String(pattern))
    {
    }

    RX_String asString(unsigned int width) const override
    {
        return RX_ExError(QV_RX_BAD_PATTERN, getArgument(0), getArgument(1)).asString(width);
    }

    [[noreturn]] void throwThis() const override
    {
        throw *this;
    }

    BadPattern* clone() const override
    {
        return new BadPattern(*this);
    }
};

}

struct RX_Wildcard::Compiled
{
    virtual ~Compiled() = default;
    virtual bool matches(const char* text) const = 0;
};

struct RX_Wildcard::CompiledWild : Compiled
{
    explicit CompiledWild(const char* pattern) : wild(pattern) {}

    bool matches(const char* text) const override
    {
        return wild.matches(text);
    }

    const qv::WildPattern wild;
};

struct RX_Wildcard::CompiledRegexp : Compiled
{
    explicit CompiledRegexp(const char* pattern)
    {
        const int status = ::regcomp(&regex, pattern, REG_EXTENDED | REG_NOSUB);
        if (status != 0) {
            char reason[128];
            ::regerror(status, &regex, reason, sizeof reason);
            throw BadPattern(status, reason, pattern);
        }
    }
    CompiledRegexp(const CompiledRegexp&) = delete;
    CompiledRegexp& operator=(const CompiledRegexp&) = delete;
    ~CompiledRegexp() override
    {
        ::regfree(&regex);
    }

    bool matches(const char* text) const override
    {
        return ::regexec(&regex, text, 0, nullptr, 0) == 0;
    }

    regex_t regex;
};

RX_Wildcard::RX_Wildcard(const RX_String& pattern, Style style) : _compiled(compile(pattern, style)) {}

RX_Wildcard::~RX_Wildcard()
{
    freeCompiled();
}

void RX_Wildcard::setPattern(const RX_String& pattern, Style style)
{
    _compiled = compile(pattern, style);
}

std::unique_ptr<const RX_Wildcard::Compiled> RX_Wildcard::compile(const RX_String& pattern, Style style)
{
    if (style == REGEXP) {
        return std::make_unique<CompiledRegexp>(pattern.data());
    }
    try {
        return std::make_unique<CompiledWild>(pattern.data());
    } catch (const std::invalid_argument& error) {
        throw BadPattern(EINVAL, error.what(), pattern.data());
    }
}

qv_bool_t RX_Wildcard::matches(const char* text) const
{
    return _compiled && _compiled->matches(text) ? 1 : 0;
}

void RX_Wildcard::freeCompiled() noexcept
{
    _compiled.reset();
}

RX_String RX_Wildcard::quote(const RX_String& text)
{
    std::string quoted;
    quoted.reserve(text.length());
    for (const char* pos = text.data(); *pos != '\0'; ++pos) {
        if (std::strchr("*?[<\\", *pos) != nullptr) {
            quoted += '\\';
        }
        quoted += *pos;
    }
    return RX_String(quoted.data(), quoted.length());
}
