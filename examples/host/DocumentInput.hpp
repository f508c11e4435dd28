#ifndef NIMHOST_DOCUMENTINPUT_HPP
#define NIMHOST_DOCUMENTINPUT_HPP

#include "Counters.hpp"

#include <array>
#include <streambuf>
#include <string>

namespace nimhost {

/**
 * Reads a file, a pipe or standard input, and stops at the end of the run even if no input arrives. For the
 * reader of the stream, each reason is an end of file; requireEnd() distinguishes them.
 */
class DocumentInput : public std::streambuf
{
public:
    /**
     * @param path path of the document, or "-" for standard input
     * @throws system_error if it cannot be opened
     */
    DocumentInput(const std::string& path, const Stop& stop);
    ~DocumentInput() override;

    DocumentInput(const DocumentInput&) = delete;
    DocumentInput& operator=(const DocumentInput&) = delete;

    /** @throws system_error unless the input was read to its end */
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
