#include "Descriptors.hpp"
#include "Failure.hpp"
#include "Host.hpp"

#include <iostream>

/**
 * Runs the example host. An invalid command line or configuration, or a failed start, is reported with one
 * line and status 2.
 */
int main(int argc, char** argv)
{
    try {
        nimhost::openMissingDescriptors();
        const nimhost::Options options = nimhost::Options::parse(argc, argv);
        if (options.help) {
            std::cout << nimhost::USAGE << std::flush;
            return std::cout ? 0 : 1;
        }
        return nimhost::Host(options).run();
    } catch (...) {
        nimhost::writeError({nimhost::currentFailure()});
        return 2;
    }
}
