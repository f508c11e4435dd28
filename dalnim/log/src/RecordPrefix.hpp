#ifndef DALNIM_LOG_SRC_RECORDPREFIX_HPP
#define DALNIM_LOG_SRC_RECORDPREFIX_HPP

namespace com::kor::dal::nim::log {

class Header;
class LineText;
class Module;

/**
 * Adds the prefix of a record: the fields that the mask selects, joined by SEPARATOR, then TERMINATOR.
 * With `escapesControls` the name of the module is escaped by appendEscaped().
 * What the look-up of host, process or date raises passes through.
 */
void appendPrefix(LineText& line, unsigned int outputMask, const Module& mod, const Header& rec,
                  bool escapesControls);

}

#endif
