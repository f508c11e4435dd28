// Fields of records. The input is read as the text of a record, and each field that is found is written and
// read again. Then the part in front of its first zero byte becomes the name of a field, and the rest its
// value, inside of another text.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <dalnim/log/Field.hpp>
#include <dalnim/log/FieldReader.hpp>
#include <fuzz/support/Require.hpp>

namespace {

using com::kor::dal::nim::log::field;
using com::kor::dal::nim::log::FieldReader;

bool isNamePart(char c, bool isFirst)
{
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_";
    return c != '\0' && (letters + (isFirst ? "" : "0123456789.-")).find(c) != std::string::npos;
}

std::string validName(std::string name)
{
    for (std::size_t i = 0; i < name.size(); ++i) {
        name[i] = isNamePart(name[i], i == 0) ? name[i] : '_';
    }
    return name.empty() ? "_" : name;
}

/** Writes a field between two words, and reads it back. */
void checkRoundTrip(const std::string& name, const std::string& value)
{
    std::ostringstream os;
    os << "text" << field(name, value) << " text";
    const std::string text = os.str();
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        require(byte >= 0x20 && byte != 0x7f);
    }
    FieldReader fields(text);
    require(fields.next());
    require(fields.name() == validName(name));
    require(fields.value() == value);
    require(fields.hasValue(value));
    require(!fields.hasValue(value + "x"));
    require(value.empty() || !fields.hasValue(value.substr(1)));
    require(!fields.next());
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::size_t end = 0;
    for (FieldReader fields(input); fields.next();) {
        const std::string name(fields.name());
        const auto position = static_cast<std::size_t>(fields.name().data() - input.data());
        require(position >= end && position + name.size() < size);
        end = position + name.size();
        require(name == validName(name));
        require(fields.hasValue(fields.value()));
        checkRoundTrip(name, fields.value());
    }
    const std::size_t zero = input.find('\0');
    checkRoundTrip(input.substr(0, zero), zero == std::string::npos ? "" : input.substr(zero + 1));
    return 0;
}
