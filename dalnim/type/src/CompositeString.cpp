#include <dalnim/dalbase.hpp>

#include <dalnim/type/CompositeString.hpp>

#include <cstdint>

namespace com::kor::dal::nim::type {

CompositeString::CompositeString() : skip_nil(false), delims(DEFAULT_DELIMITERS) {}

CompositeString::CompositeString(const String& composite, bool skip_empty)
    : skip_nil(skip_empty), target(composite), delims(DEFAULT_DELIMITERS)
{
}

CompositeString::CompositeString(const String& composite, const String& delimiters, bool skip_empty)
    : skip_nil(skip_empty), target(composite), delims(delimiters)
{
}

CompositeString::CompositeString(const String& composite, const char* delimiters, bool skip_empty)
    : skip_nil(skip_empty), target(composite), delims(delimiters)
{
}

CompositeString::CompositeString(const CompositeString& composite, bool deep) : skip_nil(composite.skip_nil)
{
    if (deep) {
        target = String(composite.target.data(), composite.target.length());
        delims = String(composite.delims.data(), composite.delims.length());
    } else {
        target = composite.target;
        delims = composite.delims;
    }
}

// Safe for self-assignment: copies first. NOLINTNEXTLINE(cert-oop54-cpp)
CompositeString& CompositeString::operator=(const CompositeString& composite)
{
    // Both strings or none: one with the other's delimiters would have different components.
    String new_target(composite.target);
    String new_delims(composite.delims);
    skip_nil = composite.skip_nil;
    target.swap(new_target);
    delims.swap(new_delims);
    return *this;
}

unsigned int CompositeString::components() const
{
    unsigned int count = 0;
    std::size_t pos = 0;
    std::size_t first = 0;
    std::size_t delim = 0;

    while (const std::size_t used = find_next(pos, first, delim)) {
        pos += used;
        ++count;
    }
    return count;
}

String CompositeString::next()
{
    SInt8_t dlm = 0;
    return next(dlm);
}

String CompositeString::next(SInt8_t& dlm)
{
    std::size_t first = 0;
    std::size_t delim = 0;
    const std::size_t used = find_next(0, first, delim);

    if (used == 0) {
        return String();
    }
    // Not const, so that returning it moves: copying could throw after the removal.
    String component = target.substr(first, delim - first);
    dlm = static_cast<SInt8_t>(target[delim]);
    target.erase(0, used);
    return component;
}

String CompositeString::last()
{
    std::size_t pos = 0;
    std::size_t first = 0;
    std::size_t delim = 0;

    while (const std::size_t used = find_next(pos, first, delim)) {
        pos += used;
    }
    if (pos == 0) {
        return String();
    }
    String component = target.substr(first, delim - first);
    target.erase(first);
    return component;
}

CompositeString& CompositeString::append(const String& component)
{
    if (!component.empty() && !target.empty()) {
        target.reserve(target.size() + 1 + component.size());
        if (!delims.empty()) {
            target += delims.front();
        }
        target += component;
    } else if (!component.empty()) {
        target = component;
    } else if (!delims.empty() && !skip_nil) {
        target += delims.front();
    }
    return *this;
}

CompositeString& CompositeString::operator+=(const String& component)
{
    return append(component);
}

String CompositeString::composite(bool deep) const
{
    return deep ? String(target.data(), target.size()) : target;
}

String CompositeString::toString(bool deep) const
{
    return composite(deep);
}

CompositeString::operator const void*() const noexcept
{
    return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(!target.empty()));
}

bool CompositeString::operator!() const noexcept
{
    return target.empty();
}

std::size_t CompositeString::find_next(std::size_t start, std::size_t& first, std::size_t& delim) const
{
    const std::size_t len = target.length();

    if (start >= len) {
        return 0;
    }

    std::size_t pos = start;
    std::size_t d = String::npos;

    if (!delims.empty()) {
        d = target.find_first_of(delims, pos);
        while (skip_nil && d == pos && pos < len) {
            ++pos;
            d = target.find_first_of(delims, pos);
        }
    }

    if (d != String::npos) {
        first = pos;
        delim = d;
        return d - start + 1;
    }
    if (pos >= len && skip_nil) {
        return 0;
    }
    first = pos;
    delim = len;
    return len - start;
}

}
