#ifndef DALNIM_XML_ATTRIBUTE_HPP
#define DALNIM_XML_ATTRIBUTE_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <vector>

namespace com::kor::dal::nim::xml {

/** An attribute of a start tag, the symbols of its value expanded. */
struct DALNIM_API Attribute
{
    /** As it stands in the document. */
    String name;
    /** What stood between the quotes, its symbols expanded. */
    String value;
};

/** In the order of the document. */
typedef std::vector<Attribute> Attributes;

}

#endif
