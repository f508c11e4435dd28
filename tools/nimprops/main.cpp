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
    "Reads properties files with what they include; \"-\" is standard input.\n"
    "\n"
    "  check     show what is wrong in each file, and which properties are set twice\n"
    "  print     show all properties in the order of their keys, as a file that can be read again\n"
    "  get       show the value of one property\n"
    "  instance  show the settings of an instance, those of the class only if that is given, with\n"
    "            the key and the place that each comes from\n"
    "  diff      show the properties that are in one of two files or differ\n"
    "\n"
    "      --log      check the settings of the log as well, as a server in this directory would when it\n"
    "                 is reconfigured: keys, values, and whether the file of the log can be opened\n"
    "  -h, --help     show this text\n"
    "  -V, --version  show the version\n"
    "\n"
    "Exit status: 0; 1 for findings, differences, or a property or instance that is not there; 2 for a\n"
    "bad command line or a file that cannot be read.\n";

class NimProps : public nimtools::CommandProgram
{
public:
    NimProps()
        : CommandProgram("nimprops", USAGE,
                         {{"check", 1, ANY_NUMBER, "a FILE", [this](auto& files) { return check(files); }},
                          {"print", 1, 1, "one FILE", [this](auto& files) { return print(files); }},
                          {"get", 2, 2, "a FILE and a KEY", [this](auto& operands) { return get(operands); }},
                          {"instance", 2, 3, "a FILE, perhaps a CLASS, and an INSTANCE",
                           [this](auto& operands) { return instance(operands); }},
                          {"diff", 2, 2, "two FILEs", [this](auto& files) { return diff(files); }}},
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

/** Shows the settings of the log that a reconfiguration would refuse. */
Status NimProps::checkLog(const std::string& path, const PropertiesFile& file)
{
    const auto bad = log::Control::checkConfiguration(file.table());
    if (bad.empty()) {
        return nimtools::STATUS_FINE;
    }
    const std::map<std::string, std::string> places = file.places();
    for (const log::Control::BadSetting& setting : bad) {
        const auto place = places.find(setting.key);
        out << (place == places.end() ? path : place->second) << ": error: " << setting.key << " = \""
            << setting.value << "\" " << setting.reason << '\n';
    }
    return nimtools::STATUS_FOUND;
}

Status NimProps::check(const std::vector<std::string>& operands)
{
    Status status = nimtools::STATUS_FINE;
    for (const std::string& path : operands) {
        try {
            const PropertiesFile file(path);
            for (const Message& message : file.allMessages()) {
                const bool isError = message.severity == Message::ERROR;
                out << message.place << ": " << (isError ? "error: " : "warning: ") << message.text << '\n';
                status = std::max(status, nimtools::STATUS_FOUND);
            }
            if (isGiven(CHECKS_LOG)) {
                status = std::max(status, checkLog(path, file));
            }
        } catch (const Failure& exc) {
            complain(exc.what());
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
    return nimtools::STATUS_FINE;
}

Status NimProps::get(const std::vector<std::string>& operands)
{
    const PropertiesFile file(operands[0]);
    file.requireNoError();
    const std::string& key = operands[1];
    if (!file.table().containsKey(key)) {
        complain(operands[0] + ": no property \"" + key + "\"");
        return nimtools::STATUS_FOUND;
    }
    out << file.table().getProperty(key) << '\n';
    return nimtools::STATUS_FINE;
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
        throw Failure(operands[0] + ": a key is nothing but a prefix: " + exc.what());
    }
    const std::map<std::string, std::string> places = file.places();
    const std::vector<std::string> lines = storedLines(*effective);
    bool isEmpty = true;
    auto line = lines.begin();
    for (const auto& [key, value] : *effective) {
        if (key.compare(0, classPrefix.size(), classPrefix) == 0) {
            // The ranks of getDefaultedProperties(), highest first.
            std::string from = instanceName + '/' + key;
            for (const char* const prefix : {"*/", "/"}) {
                from = file.table().containsKey(from) ? from : prefix + key;
            }
            const auto place = places.find(from);
            out << *line << '\t' << from << '\t' << (place == places.end() ? "-" : place->second) << '\n';
            isEmpty = false;
        }
        ++line;
    }
    if (isEmpty) {
        complain(operands[0] + ": no settings for " + instanceName
                 + (classPrefix.empty() ? "" : " of the class " + operands[1]));
        return nimtools::STATUS_FOUND;
    }
    return nimtools::STATUS_FINE;
}

Status NimProps::diff(const std::vector<std::string>& operands)
{
    const PropertiesFile left(operands[0]);
    const PropertiesFile right(operands[1]);
    left.requireNoError();
    right.requireNoError();
    const std::vector<std::string> leftLines = storedLines(left.table());
    const std::vector<std::string> rightLines = storedLines(right.table());

    Status status = nimtools::STATUS_FINE;
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
