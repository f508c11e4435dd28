#ifndef DALNIM_LOG_SRC_HEXDIGITS_HPP
#define DALNIM_LOG_SRC_HEXDIGITS_HPP

namespace com::kor::dal::nim::log {

/** The digits of the escape sequence \xNN. */
constexpr char HEX_DIGITS[] = "0123456789abcdef";

}

#endif
