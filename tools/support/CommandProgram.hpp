#ifndef DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP
#define DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP

#include "Program.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace nimtools {

/** A tool whose first operand is a command, and the others that command's. */
class CommandProgram : public Program
{
protected:
    struct Command
    {
        const char* name;
        std::size_t fewest;
        std::size_t most;
        /** What it needs, for the complaint. */
        const char* needs;
        std::function<Status(const std::vector<std::string>& operands)> carryOut;
    };
    static constexpr std::size_t ANY_NUMBER = static_cast<std::size_t>(-1);

    CommandProgram(const char* toolName, const char* usageText, std::vector<Command> toolCommands);

    Status work(int argc, char** argv) override;

private:
    /** The names, as "a, b or c". */
    std::string names() const;

    const std::vector<Command> commands;
};

}

#endif
