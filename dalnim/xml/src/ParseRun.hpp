#ifndef DALNIM_XML_SRC_PARSERUN_HPP
#define DALNIM_XML_SRC_PARSERUN_HPP

#include "ParseControl.hpp"

namespace com::kor::dal::nim::xml {

/**
 * Parses the document in a control block, editing it in place, and calls the callbacks. Exceptions from
 * callbacks propagate.
 * @return PDS_PARSE_OK, or the code that ended the parse; `bError` is set then
 */
int runParse(iParseCB& control, int flags);

}

#endif
