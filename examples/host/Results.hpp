#ifndef NIMHOST_RESULTS_HPP
#define NIMHOST_RESULTS_HPP

#include <dalnim/String.hpp>
#include <dalnim/mt/SysMutexCondSem.hpp>

#include <cstdint>
#include <iosfwd>
#include <map>

namespace nimhost {

/**
 * The results of requests as an XML document, in the order in which the requests were read, whichever
 * is answered first. Any thread may call everything.
 */
class Results
{
public:
    typedef std::uint64_t Place;

    /** @param stream stays the caller's, and nobody else writes to it */
    explicit Results(std::ostream& stream);

    /** The place of the next result. */
    Place reserve();
    /** Fills a place, with an element. Throws `std::ios_base::failure` when the stream refuses it. */
    void fill(Place place, const com::kor::dal::nim::String& element);
    /** Waits until all places reserved are filled. */
    void waitForAll() const;
    /** Ends the document; nothing is reserved or filled any more. */
    void end();

private:
    void require() const;

    std::ostream& os;
    /** Guards all below; signalled when a place is filled. */
    mutable com::kor::dal::nim::mt::SysMutexCondSem sync;
    Place reserved = 0;
    Place written = 0;
    /** Those that an earlier one still keeps waiting. */
    std::map<Place, com::kor::dal::nim::String> early;
};

/** Text as it stands in an element or in a value. */
com::kor::dal::nim::String escaped(const com::kor::dal::nim::String& text);

}

#endif
