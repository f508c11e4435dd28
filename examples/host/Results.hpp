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
 * Writes the results of requests as an XML document, in the order in which the requests were read, in
 * whatever order they are answered. Thread-safe.
 *
 * After a write error nothing more is written, and results are counted as not written.
 */
class Results
{
public:
    typedef std::uint64_t Position;

    /** @param notWritten incremented for each result that could not be written */
    Results(int descriptor, std::atomic<std::uint64_t>& notWritten);

    /** Writes the start of the document. */
    void begin();
    /**
     * Reserves the position of the next result.
     * @param start the start tag of the result up to the last known attribute, without ">"
     */
    Position reserve(const com::kor::dal::nim::String& start);
    /** Completes a result with the rest of its element. Does nothing if it was completed before. */
    void fill(Position position, const com::kor::dal::nim::String& rest);
    /** Completes the result of a request that was not answered. */
    void drop(Position position);
    /** Drops all results that are not completed. */
    void dropUnfilled();
    /** Writes the end of the document. Nothing may be reserved or filled afterwards. */
    void end();
    /** Makes the current write, and all later ones, fail instead of waiting for the reader. */
    void disableWaiting();

    /** Returns the `errno` of the first failed write, or 0. */
    int failure() const
    {
        return error;
    }

private:
    void fillLocked(Position position, const com::kor::dal::nim::String& rest);
    void write(const com::kor::dal::nim::String& text);
    bool waitUntilWritable();

    const int output;
    /** Maximum number of bytes that can be written without blocking after poll() has returned. */
    const std::size_t maxWrite;
    std::atomic<std::uint64_t>& notWritten;
    std::atomic<int> error{0};
    std::atomic<bool> isWaitingDisabled{false};
    /** Guards all members below. */
    std::mutex lock;
    Position reserved = 0;
    Position written = 0;
    /** Starts of the results that are not completed. */
    std::map<Position, com::kor::dal::nim::String> unfilled;
    /** Completed results that wait for an earlier one. */
    std::map<Position, com::kor::dal::nim::String> completed;
};

/** Returns a string escaped for XML text and attribute values. */
com::kor::dal::nim::String escaped(const com::kor::dal::nim::String& text);

}

#endif
