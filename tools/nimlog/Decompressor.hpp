#ifndef DALNIM_TOOLS_NIMLOG_DECOMPRESSOR_HPP
#define DALNIM_TOOLS_NIMLOG_DECOMPRESSOR_HPP

#include <support/Descriptor.hpp>

#include <string>
#include <sys/types.h>

namespace nimlog {

/**
 * A program that decompresses a file, and a pipe from it. The programs of the system are used instead of
 * their libraries: they are installed nearly everywhere, decompress on a second processor, and a damaged file
 * cannot harm this process.
 */
class Decompressor
{
public:
    /**
     * Starts the program.
     * @param programName searched in PATH
     * @param compressed  descriptor of the file
     * @param fileName    name of the file, for messages
     * @throws Failure if the program is not installed or cannot be started
     */
    Decompressor(const char* programName, int compressed, std::string fileName);
    /** Ends the program if it is still running. */
    ~Decompressor();

    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;

    /** Returns the descriptor to read the decompressed bytes from. */
    int output() const
    {
        return pipe.get();
    }

    /**
     * Waits for the program. Must be called at the end of its output.
     * @throws Failure if the program has failed, because the file is damaged, for example
     */
    void finish();

private:
    int wait();

    const std::string program;
    const std::string name;
    nimtools::Descriptor pipe;
    /** -1 if the program has ended. */
    pid_t process = -1;
};

}

#endif
