#ifndef NIMHOST_DOCUMENTINPUT_HPP
#define NIMHOST_DOCUMENTINPUT_HPP

#include "Counters.hpp"

#include <array>
#include <streambuf>
#include <string>

namespace nimhost {

/**
 * A file, a pipe or standard input, read so that the end of the run is noticed while nothing comes.
 * It ends for whatever reason; that is told apart afterwards.
 */
class DocumentInput : public std::streambuf
{
public:
    /** @param path "-" for standard input. Throws system_error when it cannot be opened. */
    DocumentInput(const std::string& path, const Stop& stop);
    ~DocumentInput() override;

    DocumentInput(const DocumentInput&) = delete;
    DocumentInput& operator=(const DocumentInput&) = delete;

    /** Throws system_error when it ended for another reason than its end. */
    void requireEnd() const;

protected:
    int_type underflow() override;

private:
    bool waitForBytes();

    const std::string name;
    const Stop& stop;
    const int descriptor;
    int failure = 0;
    std::array<char, 16384> buffer;
};

}

#endif
