#include "CommandLine.hpp"

#include "Errors.hpp"

namespace nimtools {

CommandLine::CommandLine(int argc, char** argv, const std::vector<Option>& options)
    : count(argc), words(argv), letters(":")
{
    constexpr int LAST_LETTER = 255;
    for (const Option& known : options) {
        const int argument = known.hasValue ? required_argument : no_argument;
        longOptions.push_back({known.name, argument, nullptr, known.id});
        if (known.id <= LAST_LETTER) {
            letters += static_cast<char>(known.id);
            letters += known.hasValue ? ":" : "";
        }
    }
    longOptions.push_back({nullptr, 0, nullptr, 0});
    opterr = 0;
}

int CommandLine::next()
{
    const int index = optind;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the tools are single-threaded
    const int found = getopt_long(count, words, letters.c_str(), longOptions.data(), nullptr);
    if (found != ':' && found != '?') {
        return found;
    }
    // An invalid letter may be within a word of several letters; an invalid long option is a word of its own.
    const std::string word = words[optind > index ? optind - 1 : index];
    const bool isLong = word.compare(0, 2, "--") == 0;
    const std::string name = isLong ? word : std::string("-") + static_cast<char>(optopt);
    if (found == ':') {
        throw UsageError("option " + name + " requires a value");
    }
    if (isLong && optopt != 0) {
        throw UsageError("option " + name.substr(0, name.find('=')) + " takes no value");
    }
    throw UsageError("unknown option " + name);
}

const char* CommandLine::value() const
{
    return optarg;
}

std::vector<std::string> CommandLine::operands() const
{
    return {words + optind, words + count};
}

}
