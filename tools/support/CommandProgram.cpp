#include "CommandProgram.hpp"

#include "Errors.hpp"

#include <algorithm>
#include <utility>

namespace nimtools {

CommandProgram::CommandProgram(const char* toolName, const char* usageText, std::vector<Command> toolCommands,
                               std::vector<CommandOption> commandOptions)
    : Program(toolName, usageText), commands(std::move(toolCommands)), options(std::move(commandOptions))
{
}

bool CommandProgram::hasOption(int id) const
{
    return std::find(givenOptions.begin(), givenOptions.end(), id) != givenOptions.end();
}

void CommandProgram::checkOptions(const std::string& command) const
{
    for (const CommandOption& known : options) {
        if (hasOption(known.option.id) && command != known.command) {
            throw UsageError(std::string("option --") + known.option.name + " is only valid with "
                             + known.command);
        }
    }
}

Status CommandProgram::work(int argc, char** argv)
{
    std::vector<Option> allOptions = {{"help", 'h', false}, {"version", 'V', false}};
    for (const CommandOption& option : options) {
        allOptions.push_back(option.option);
    }
    CommandLine line(argc, argv, allOptions);
    for (int option; (option = line.next()) != -1;) {
        if (option == 'h' || option == 'V') {
            option == 'h' ? showUsage() : showVersion();
            return STATUS_OK;
        }
        givenOptions.push_back(option);
    }
    std::vector<std::string> operands = line.operands();
    if (operands.empty()) {
        throw UsageError("expected a command: " + commandNames());
    }
    const std::string wanted = operands.front();
    operands.erase(operands.begin());
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&](const Command& known) { return wanted == known.name; });
    if (command == commands.end()) {
        throw UsageError("unknown command " + wanted);
    }
    checkOptions(wanted);
    if (operands.size() < command->minOperands || operands.size() > command->maxOperands) {
        throw UsageError(wanted + " requires the operands " + command->operandNames);
    }
    return command->execute(operands);
}

std::string CommandProgram::commandNames() const
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
