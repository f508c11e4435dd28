#include "Program.hpp"

#include "Errors.hpp"
#include "TerminalText.hpp"

#include <exception>
#include <iostream>
#include <unistd.h>

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
        printError(exc.what());
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

void Program::warn(const std::string& text)
{
    out.flush();
    printError(text);
}

/** Makes control characters visible on a terminal: messages may quote untrusted files. */
void Program::printError(const std::string& text) const
{
    std::string line = text;
    if (isatty(STDERR_FILENO) == 1) {
        line.clear();
        appendVisible(line, text, "\t");
    }
    std::cerr << name << ": " << line << std::endl;
}

}
