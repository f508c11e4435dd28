#ifndef DALNIM_XML_ATTRIBUTE_HPP
#define DALNIM_XML_ATTRIBUTE_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <vector>

namespace com::kor::dal::nim::xml {

/** An attribute of a start tag, the symbols of its value expanded. */
struct DALNIM_API Attribute
{
    String name;
    String value;
};

/** In the order of the document. */
typedef std::vector<Attribute> Attributes;

}

#endif
