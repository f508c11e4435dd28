#ifndef GREETER_HPP
#define GREETER_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>

/** The interface of the objects that a plug-in creates. */
class Greeter : public com::kor::dal::nim::mem::RefCntObject
{
public:
    virtual com::kor::dal::nim::String greet(const com::kor::dal::nim::String& name) const = 0;
};

typedef com::kor::dal::nim::mem::RcoRef<Greeter> GreeterRef;

/** The type of the function that each plug-in exports as "make_greeter". */
typedef Greeter* (*GreeterEntry)();

#endif
