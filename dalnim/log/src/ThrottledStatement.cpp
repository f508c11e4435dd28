#include <dalnim/dalbase.hpp>

#include <dalnim/log/ThrottledStatement.hpp>

#include <string>

namespace com::kor::dal::nim::log {

ThrottledStatement& ThrottledStatement::operator+=(std::ostream& text)
{
    // Inserted by neither the stream's formats nor its state.
    if (heldBack != 0) {
        appendToText(" (" + std::to_string(heldBack) + " held back)");
    } else if (lastOf != 0) {
        const std::string number = std::to_string(lastOf);
        appendToText(" (" + number + " of " + number + ", further ones are held back)");
    }
    module += text;
    heldBack = 0;
    return *this;
}

}
