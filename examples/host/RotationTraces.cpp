#include "RotationTraces.hpp"

#include <iostream>

namespace nimhost {

namespace {

bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

}

RotationTraces::RotationTraces() : standardError(std::cerr.rdbuf(this)) {}

RotationTraces::~RotationTraces()
{
    std::cerr.rdbuf(standardError);
    standardError->sputn(line.data(), static_cast<std::streamsize>(line.size()));
}

RotationTraces::int_type RotationTraces::overflow(int_type c)
{
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        const char byte = traits_type::to_char_type(c);
        append(&byte, 1);
    }
    return traits_type::not_eof(c);
}

std::streamsize RotationTraces::xsputn(const char* text, std::streamsize length)
{
    append(text, static_cast<std::size_t>(length));
    return length;
}

int RotationTraces::sync()
{
    const std::lock_guard<std::mutex> guard(lock);
    return standardError->pubsync();
}

void RotationTraces::append(const char* text, std::size_t length)
{
    const std::lock_guard<std::mutex> guard(lock);
    for (std::size_t i = 0; i < length; ++i) {
        line.push_back(text[i]);
        if (text[i] == '\n') {
            processLine();
        }
    }
}

void RotationTraces::processLine()
{
    // A line may begin with its priority: see log::Control::setPriorityPrefix().
    const std::size_t start = line.size() > 3 && line[0] == '<' && line[2] == '>' ? 3 : 0;
    const bool trace = line.compare(start, 8, "LogFile:") == 0;
    if (trace && contains(line, "Switching log file [")) {
        ++rotationCount;
    }
    // Errors, and everything that is not a trace, are shown to the user.
    if (!trace || contains(line, "ERROR") || contains(line, "Failed to") || contains(line, "Could not")) {
        standardError->sputn(line.data(), static_cast<std::streamsize>(line.size()));
    }
    line.clear();
}

}
