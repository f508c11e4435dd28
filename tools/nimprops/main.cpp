#include "PropertiesFile.hpp"

#include <dalnim/io/Config.hpp>
#include <dalnim/log/Control.hpp>
#include <support/CommandProgram.hpp>
#include <support/Errors.hpp>

#include <memory>
#include <stdexcept>

namespace nimprops {

namespace {

namespace log = com::kor::dal::nim::log;
using nimtools::Failure;
using nimtools::Status;

const char USAGE[] =
    "usage: nimprops check [--log] FILE...\n"
    "       nimprops print FILE\n"
    "       nimprops get FILE KEY\n"
    "       nimprops instance FILE [CLASS] INSTANCE\n"
    "       nimprops diff FILE FILE\n"
    "\n"
    "Reads properties files and the files that they include. If FILE is \"-\", reads standard input.\n"
    "\n"
    "  check     print the errors of each file, and warnings about properties that are set twice\n"
    "  print     print all properties, sorted by key, in a form that can be loaded again\n"
    "  get       print the value of a property\n"
    "  instance  print the settings of an instance (if CLASS is given, only those of the class), each\n"
    "            with the key, file and line that it comes from\n"
    "  diff      print the properties that differ, or that only one of the files contains\n"
    "\n"
    "      --log      also check the log settings, as a server started in this directory would when it is\n"
    "                 reconfigured: unknown keys, invalid values, and a log file that cannot be opened\n"
    "  -h, --help     print this help\n"
    "  -V, --version  print the version\n"
    "\n"
    "Exit status: 0 if all is well; 1 if there are findings or differences, or the property or instance\n"
    "does not exist; 2 if the command line is invalid or a file cannot be read.\n";

class NimProps : public nimtools::CommandProgram
{
public:
    NimProps()
        : CommandProgram("nimprops", USAGE,
                         {{"check", 1, ANY_NUMBER, "FILE...", [this](auto& files) { return check(files); }},
                          {"print", 1, 1, "FILE", [this](auto& files) { return print(files); }},
                          {"get", 2, 2, "FILE KEY", [this](auto& operands) { return get(operands); }},
                          {"instance", 2, 3, "FILE [CLASS] INSTANCE",
                           [this](auto& operands) { return instance(operands); }},
                          {"diff", 2, 2, "FILE FILE", [this](auto& files) { return diff(files); }}},
                         {{{"log", CHECKS_LOG, false}, "check"}})
    {
    }

private:
    static constexpr int CHECKS_LOG = 256;

    Status checkLog(const std::string& path, const PropertiesFile& file);
    Status check(const std::vector<std::string>& operands);
    Status print(const std::vector<std::string>& operands);
    Status get(const std::vector<std::string>& operands);
    Status instance(const std::vector<std::string>& operands);
    Status diff(const std::vector<std::string>& operands);
};

/** Prints the log settings that a reconfiguration would reject. */
Status NimProps::checkLog(const std::string& path, const PropertiesFile& file)
{
    const auto bad = log::Control::checkConfiguration(file.table());
    if (bad.empty()) {
        return nimtools::STATUS_OK;
    }
    const std::map<std::string, std::string> locations = file.locations();
    for (const log::Control::BadSetting& setting : bad) {
        const auto location = locations.find(setting.key);
        out << (location == locations.end() ? path : location->second) << ": error: " << setting.key
            << " = \"" << setting.value << "\" " << setting.reason << '\n';
    }
    return nimtools::STATUS_FOUND;
}

Status NimProps::check(const std::vector<std::string>& operands)
{
    Status status = nimtools::STATUS_OK;
    for (const std::string& path : operands) {
        try {
            const PropertiesFile file(path);
            for (const Message& message : file.allMessages()) {
                const bool isError = message.severity == Message::ERROR;
                out << message.location << ": " << (isError ? "error: " : "warning: ") << message.text
                    << '\n';
                status = std::max(status, nimtools::STATUS_FOUND);
            }
            if (hasOption(CHECKS_LOG)) {
                status = std::max(status, checkLog(path, file));
            }
        } catch (const Failure& exc) {
            warn(exc.what());
            status = nimtools::STATUS_FAILED;
        }
    }
    return status;
}

Status NimProps::print(const std::vector<std::string>& operands)
{
    const PropertiesFile file(operands[0]);
    file.requireNoError();
    for (const std::string& line : storedLines(file.table())) {
        out << line << '\n';
    }
    return nimtools::STATUS_OK;
}

Status NimProps::get(const std::vector<std::string>& operands)
{
    const PropertiesFile file(operands[0]);
    file.requireNoError();
    const std::string& key = operands[1];
    if (!file.table().containsKey(key)) {
        warn(operands[0] + ": no property \"" + key + "\"");
        return nimtools::STATUS_FOUND;
    }
    out << file.table().getProperty(key) << '\n';
    return nimtools::STATUS_OK;
}

Status NimProps::instance(const std::vector<std::string>& operands)
{
    const PropertiesFile file(operands[0]);
    file.requireNoError();
    const std::string& instanceName = operands.back();
    const std::string classPrefix = operands.size() == 3 ? operands[1] + '/' : "";

    std::unique_ptr<io::Properties> effective;
    try {
        effective.reset(io::Config::getDefaultedProperties(file.table(), instanceName));
    } catch (const std::invalid_argument& exc) {
        throw Failure(operands[0] + ": a key consists only of a prefix: " + exc.what());
    }
    const std::map<std::string, std::string> locations = file.locations();
    const std::vector<std::string> lines = storedLines(*effective);
    bool isEmpty = true;
    auto line = lines.begin();
    for (const auto& [key, value] : *effective) {
        if (key.compare(0, classPrefix.size(), classPrefix) == 0) {
            // The precedence of getDefaultedProperties(), highest first.
            std::string from = instanceName + '/' + key;
            for (const char* const prefix : {"*/", "/"}) {
                from = file.table().containsKey(from) ? from : prefix + key;
            }
            const auto location = locations.find(from);
            out << *line << '\t' << from << '\t' << (location == locations.end() ? "-" : location->second)
                << '\n';
            isEmpty = false;
        }
        ++line;
    }
    if (isEmpty) {
        warn(operands[0] + ": no settings for " + instanceName
             + (classPrefix.empty() ? "" : " of class " + operands[1]));
        return nimtools::STATUS_FOUND;
    }
    return nimtools::STATUS_OK;
}

Status NimProps::diff(const std::vector<std::string>& operands)
{
    const PropertiesFile left(operands[0]);
    const PropertiesFile right(operands[1]);
    left.requireNoError();
    right.requireNoError();
    const std::vector<std::string> leftLines = storedLines(left.table());
    const std::vector<std::string> rightLines = storedLines(right.table());

    Status status = nimtools::STATUS_OK;
    auto leftLine = leftLines.begin();
    auto rightLine = rightLines.begin();
    auto l = left.table().begin();
    auto r = right.table().begin();
    const auto leftEnd = left.table().end();
    const auto rightEnd = right.table().end();
    while (l != leftEnd || r != rightEnd) {
        const bool inLeft = r == rightEnd || (l != leftEnd && l->first <= r->first);
        const bool inRight = l == leftEnd || (r != rightEnd && r->first <= l->first);
        if (!inLeft || !inRight || l->second != r->second) {
            status = nimtools::STATUS_FOUND;
            if (inLeft) {
                out << '-' << *leftLine << '\n';
            }
            if (inRight) {
                out << '+' << *rightLine << '\n';
            }
        }
        if (inLeft) {
            ++l;
            ++leftLine;
        }
        if (inRight) {
            ++r;
            ++rightLine;
        }
    }
    return status;
}

}

}

int main(int argc, char** argv)
{
    return nimprops::NimProps().run(argc, argv);
}
