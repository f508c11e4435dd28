#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/RXErrors.hpp>

namespace com::kor::dal::nim::sys::internal {

void throwTranslated(const RX_Exception& exc)
{
    const RX_String text = exc.asString(78);
    throw system_error(exc.getCode(), String(text.data(), text.length()));
}

}
