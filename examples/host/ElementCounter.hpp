#ifndef NIMHOST_ELEMENTCOUNTER_HPP
#define NIMHOST_ELEMENTCOUNTER_HPP

#include "Counters.hpp"

#include <dalnim/xml/Consumer.hpp>

namespace nimhost {

/** Counts the elements of documents. */
class ElementCounter : public com::kor::dal::nim::xml::Consumer
{
public:
    explicit ElementCounter(Counters& hostCounters) : counters(hostCounters) {}

    bool elementBegin(const com::kor::dal::nim::String&, const com::kor::dal::nim::String&,
                      const com::kor::dal::nim::xml::Attributes&) override
    {
        ++counters.elementsRead;
        return true;
    }
    bool elementEnd(const com::kor::dal::nim::String&, const com::kor::dal::nim::String&) override
    {
        return true;
    }
    bool elementProcessData(const com::kor::dal::nim::String&, const com::kor::dal::nim::String&,
                            const com::kor::dal::nim::String&, bool) override
    {
        return true;
    }

protected:
    ~ElementCounter() override = default;

private:
    Counters& counters;
};

}

#endif
