#ifndef NIMHOST_RESULTS_HPP
#define NIMHOST_RESULTS_HPP

#include <dalnim/String.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

namespace nimhost {

/**
 * The results of requests as an XML document, in the order in which the requests were read, whichever
 * is answered first. Any thread may call everything.
 *
 * A write that fails is kept: nothing is written afterwards, and the places that are filled then are
 * counted as lost.
 */
class Results
{
public:
    typedef std::uint64_t Place;

    /** @param lost counts the results that could not be written */
    Results(int descriptor, std::atomic<std::uint64_t>& lost);

    /** Begins the document. */
    void begin();
    /**
     * Reserves the place of the next result.
     * @param start the element up to its last attribute that is known: without a ">"
     */
    Place reserve(const com::kor::dal::nim::String& start);
    /**
     * Fills a place with its start and the rest of its element. Does nothing if the place was filled already.
     */
    void fill(Place place, const com::kor::dal::nim::String& rest);
    /** Fills a place whose request was not answered. */
    void drop(Place place);
    /** Drops all places that are not filled. */
    void dropOpen();
    /** Ends the document; nothing is reserved or filled any more. */
    void end();
    /** Lets a write that waits for its reader fail, and each one that would wait afterwards. */
    void stopWaiting();

    /** The errno value of the write that failed, 0 if none did. */
    int failure() const
    {
        return error;
    }

private:
    void fillLocked(Place place, const com::kor::dal::nim::String& rest);
    void write(const com::kor::dal::nim::String& text);
    bool waitForRoom();

    const int output;
    /** How much may be written at a time without a wait, once poll() has found room. */
    const std::size_t piece;
    std::atomic<std::uint64_t>& lost;
    std::atomic<int> error{0};
    std::atomic<bool> impatient{false};
    /** Guards all below. */
    std::mutex lock;
    Place reserved = 0;
    Place written = 0;
    /** The starts of those that are not filled. */
    std::map<Place, com::kor::dal::nim::String> open;
    /** Filled ones that wait for an earlier one. */
    std::map<Place, com::kor::dal::nim::String> early;
};

/** Text as it stands in an element or in a value. */
com::kor::dal::nim::String escaped(const com::kor::dal::nim::String& text);

}

#endif
