#ifndef DALNIM_XML_SRC_PARSERUN_HPP
#define DALNIM_XML_SRC_PARSERUN_HPP

#include "ParseControl.hpp"

namespace com::kor::dal::nim::xml {

/**
 * Parses the text of a control block, which it edits, and calls back for what is in it.
 * @return PDS_PARSE_OK, or the code that ended the parse; then the block's bError is set. What a
 *         callback throws passes through.
 */
int runParse(iParseCB& control, int flags);

}

#endif
