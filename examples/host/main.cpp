#include "Host.hpp"

#include <exception>
#include <iostream>

/** Runs the example host; what is wrong with options or configuration is one line and status 2. */
int main(int argc, char** argv)
{
    try {
        const nimhost::Options options = nimhost::Options::parse(argc, argv);
        if (options.help) {
            std::cout << nimhost::USAGE;
            return 0;
        }
        return nimhost::Host(options).run();
    } catch (const std::exception& exc) {
        std::cerr << "nimhost: " << exc.what() << std::endl;
        return 2;
    }
}
