#ifndef DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP
#define DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP

#include "CommandLine.hpp"
#include "Program.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace nimtools {

/** A tool whose first operand is a command, and the others that command's. An option may be one command's. */
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

    /** An option without a value that one command has. */
    struct CommandOption
    {
        Option option;
        const char* command;
    };

    CommandProgram(const char* toolName, const char* usageText, std::vector<Command> toolCommands,
                   std::vector<CommandOption> commandOptions = {});

    /** Returns true if the option of this id is given. */
    bool isGiven(int id) const;

    Status work(int argc, char** argv) override;

private:
    /** The names, as "a, b or c". */
    std::string names() const;

    /** Throws UsageError for an option that another command has. */
    void checkOptions(const std::string& command) const;

    const std::vector<Command> commands;
    const std::vector<CommandOption> options;
    /** The ids of the options that are given. */
    std::vector<int> given;
};

}

#endif
