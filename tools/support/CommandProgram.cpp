#include "CommandProgram.hpp"

#include "CommandLine.hpp"
#include "Errors.hpp"

#include <algorithm>
#include <utility>

namespace nimtools {

CommandProgram::CommandProgram(const char* toolName, const char* usageText, std::vector<Command> toolCommands)
    : Program(toolName, usageText), commands(std::move(toolCommands))
{
}

Status CommandProgram::work(int argc, char** argv)
{
    CommandLine line(argc, argv, {{"help", 'h', false}, {"version", 'V', false}});
    if (const int option = line.next(); option != -1) {
        option == 'h' ? showUsage() : showVersion();
        return STATUS_FINE;
    }
    std::vector<std::string> operands = line.operands();
    if (operands.empty()) {
        throw UsageError("a command is needed: " + names());
    }
    const std::string wanted = operands.front();
    operands.erase(operands.begin());
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&](const Command& known) { return wanted == known.name; });
    if (command == commands.end()) {
        throw UsageError("unknown command " + wanted);
    }
    if (operands.size() < command->fewest || operands.size() > command->most) {
        throw UsageError(wanted + " needs " + command->needs);
    }
    return command->carryOut(operands);
}

std::string CommandProgram::names() const
{
    std::string text;
    for (std::size_t i = 0; i < commands.size(); ++i) {
        if (i != 0) {
            text += i + 1 == commands.size() ? " or " : ", ";
        }
        text += commands[i].name;
    }
    return text;
}

}
