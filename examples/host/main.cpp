#include "Descriptors.hpp"
#include "Failure.hpp"
#include "Host.hpp"

#include <iostream>

/**
 * Runs the example host. Bad options, a bad configuration and a start that fails are reported in one line,
 * with status 2.
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
        std::cerr << "nimhost: " << nimhost::currentFailure() << std::endl;
        return 2;
    }
}
