#ifndef DALNIM_XML_ATTRIBUTE_HPP
#define DALNIM_XML_ATTRIBUTE_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <vector>

namespace com::kor::dal::nim::xml {

/** An attribute of a start tag. */
struct DALNIM_API Attribute
{
    /** Name, verbatim. */
    String name;
    /** Value, with references expanded and line breaks replaced by spaces. */
    String value;
};

/** The attributes of a start tag, in document order. */
typedef std::vector<Attribute> Attributes;

}

#endif
