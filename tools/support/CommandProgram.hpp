#ifndef DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP
#define DALNIM_TOOLS_SUPPORT_COMMANDPROGRAM_HPP

#include "CommandLine.hpp"
#include "Program.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace nimtools {

/** A tool whose first operand is a command. Options may apply to one command only. */
class CommandProgram : public Program
{
protected:
    struct Command
    {
        const char* name;
        std::size_t minOperands;
        std::size_t maxOperands;
        /** Its operands, as in the usage: "FILE KEY". */
        const char* operandNames;
        std::function<Status(const std::vector<std::string>& operands)> execute;
    };
    static constexpr std::size_t ANY_NUMBER = static_cast<std::size_t>(-1);

    /** An option without a value, for one command. */
    struct CommandOption
    {
        Option option;
        const char* command;
    };

    CommandProgram(const char* toolName, const char* usageText, std::vector<Command> toolCommands,
                   std::vector<CommandOption> commandOptions = {});

    /** Returns true if the option with this id is on the command line. */
    bool hasOption(int id) const;

    Status work(int argc, char** argv) override;

private:
    /** Returns the names of the commands, as in "a, b or c". */
    std::string commandNames() const;

    /** @throws UsageError if an option does not apply to the command */
    void checkOptions(const std::string& command) const;

    const std::vector<Command> commands;
    const std::vector<CommandOption> options;
    /** Ids of the options on the command line. */
    std::vector<int> givenOptions;
};

}

#endif
