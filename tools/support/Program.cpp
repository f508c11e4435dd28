#include "Program.hpp"

#include "Errors.hpp"

#include <exception>
#include <iostream>

namespace nimtools {

Program::Program(const char* toolName, const char* usageText) : name(toolName), usage(usageText) {}

Program::~Program() = default;

int Program::run(int argc, char** argv)
{
    try {
        const Status status = work(argc, argv);
        out.flush();
        return status;
    } catch (const std::bad_alloc&) {
        std::cerr << name << ": out of memory" << std::endl;
    } catch (const std::exception& exc) {
        std::cerr << name << ": " << exc.what() << std::endl;
    }
    return STATUS_FAILED;
}

void Program::showUsage()
{
    out << usage;
}

void Program::showVersion()
{
    out << name << " (dalnim) " << DALNIM_VERSION << '\n';
}

void Program::complain(const std::string& text)
{
    out.flush();
    std::cerr << name << ": " << text << std::endl;
}

}
