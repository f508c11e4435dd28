// Matches the lines of a text against a POSIX extended regular expression. Operation "lines" returns the
// matching lines, "count" their number. If the setting "numbers" is true, lines are preceded by their
// numbers.

#include "PluginModule.hpp"
#include "Service.hpp"

#include <dalnim/nim.hpp>

#include <sstream>

namespace nimhost::matcher {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

PluginModule pluginModule("nimhost.plugin.matcher");
nim::log::Module& com_kor_dal_nim_log_module = pluginModule;

class MatcherService : public Service
{
public:
    explicit MatcherService(const nim::io::Properties& settings)
        : numbers(settings.getProperty("numbers") == nim::io::Config::VAL_TRUE)
    {
        NIM_LOG(Severity_INFO) << "matcher with" << (numbers ? "" : "out") << " line numbers";
    }

    String perform(const ServiceCall& call) const override
    {
        const nim::sys::StackTrack track("perform()", "MatcherService", "nimhost.matcher", __LINE__);
        if (call.operation != "lines" && call.operation != "count") {
            throw std::invalid_argument("unknown operation \"" + call.operation + "\" of the matcher");
        }
        const nim::type::RegExp expression(call.argument("expression"));
        std::istringstream text(call.argument("text"));
        String found;
        std::size_t number = 0;
        std::size_t count = 0;
        for (String line; std::getline(text, line);) {
            ++number;
            if (!expression.matches(line)) {
                continue;
            }
            found += (count == 0 ? "" : "\n") + (numbers ? std::to_string(number) + ":" : "") + line;
            ++count;
        }
        NIM_LOG(Severity_DEBUG) << count << " of " << number << " lines match";
        return call.operation == "count" ? std::to_string(count) : found;
    }

private:
    const bool numbers;
};

}

NIMHOST_PLUGIN(settings)
{
    return new MatcherService(settings);
}

}
