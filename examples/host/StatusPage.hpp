#ifndef NIMHOST_STATUSPAGE_HPP
#define NIMHOST_STATUSPAGE_HPP

#include "History.hpp"
#include "ReplacedFile.hpp"
#include "Summary.hpp"

#include <iosfwd>
#include <string>

namespace nimhost {

/**
 * Writes an HTML page about a run, which needs neither network nor scripts: tables, and plots of log records
 * per second, of waiting requests and of rotations. During the run, browsers reload it automatically.
 */
class StatusPage
{
public:
    /**
     * @param path the page's file, or a symbolic link to it. Each write replaces the file as a whole
     * @throws std::runtime_error if it exists and is not a regular file
     */
    explicit StatusPage(const std::string& path);

    /**
     * @throws std::runtime_error "cannot write PATH: REASON" if the write fails; the file is unchanged then
     */
    void write(const Summary& summary, const History& history, bool running) const;

private:
    const ReplacedFile file;
};

}

#endif
