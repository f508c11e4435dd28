#ifndef NIMHOST_STATUSPAGE_HPP
#define NIMHOST_STATUSPAGE_HPP

#include "History.hpp"
#include "Summary.hpp"

#include <iosfwd>
#include <string>

namespace nimhost {

/**
 * Shows a run on a page of HTML that needs neither network nor scripts: tables, and plots of the
 * records of the sources per second, of the requests that wait and of rotations. While the run lasts, a
 * browser loads it again by itself.
 */
class StatusPage
{
public:
    /**
     * @param path the page's file, or a link to it; what stands there is replaced, as a whole, at each write.
     * Throws std::runtime_error when that is something else than a file.
     */
    explicit StatusPage(const std::string& path);

    /** Throws std::runtime_error "cannot write PATH: REASON", and leaves what stood there. */
    void write(const Summary& summary, const History& history, bool running) const;

private:
    const std::string file;
};

}

#endif
