#include "Configuration.hpp"

#include "Failure.hpp"
#include "LogSettings.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
#include <sstream>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

/** More workers would be of no use, and starting them would exhaust the threads of the machine. */
constexpr std::uint32_t MAX_WORKERS = 10000;
constexpr std::uint32_t NO_LIMIT = std::numeric_limits<std::uint32_t>::max();

/**
 * The settings of one instance. Throws ConfigurationError, with the file and the instance, if one is invalid.
 */
class Settings
{
public:
    Settings(const nim::io::Properties& all, const std::string& file, const std::string& instance)
        : effective(nim::io::Config::getDefaultedProperties(all, instance)), path(file), name(instance)
    {
    }

    std::uint32_t number(const char* key, std::uint32_t minimum, std::uint32_t maximum = NO_LIMIT) const
    {
        const std::string& text = effective->getProperty(key);
        std::uint32_t value = 0;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || stop != text.data() + text.size() || value < minimum) {
            throwInvalid(key, "a number of at least " + std::to_string(minimum), text);
        }
        if (value > maximum) {
            throwInvalid(key, "at most " + std::to_string(maximum), text);
        }
        return value;
    }

    /** Returns a list of names, separated by spaces. Names consist of letters, digits, "-" and "_". */
    std::vector<std::string> names(const char* key) const
    {
        const std::string& text = effective->getProperty(key);
        if (text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_ ")
            != std::string::npos) {
            throwInvalid(key, "a list of names", text);
        }
        std::vector<std::string> list;
        nim::type::CompositeString words(text, " ", true);
        for (std::string word = words.next(); !word.empty(); word = words.next()) {
            list.push_back(word);
        }
        return list;
    }

    bool has(const char* key) const
    {
        return effective->containsKey(key);
    }

    bool boolean(const char* key) const
    {
        const std::string& text = effective->getProperty(key);
        if (text != nim::io::Config::VAL_TRUE && text != nim::io::Config::VAL_FALSE) {
            throwInvalid(key, "true or false", text);
        }
        return text == nim::io::Config::VAL_TRUE;
    }

private:
    [[noreturn]] void throwInvalid(const char* key, const std::string& expected,
                                   const std::string& text) const
    {
        throw ConfigurationError(path + ": " + key + " of " + name + " must be " + expected + ", not \""
                                 + text + "\"");
    }

    const std::unique_ptr<nim::io::Properties> effective;
    const std::string& path;
    const std::string& name;
};

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string quotedList(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return "\"" + text + "\"";
}

/** Adds a setting if its two values differ. */
void addIfDifferent(std::vector<RestartSetting>& differences, const std::string& name,
                    const std::string& current, const std::string& requested)
{
    if (current != requested) {
        differences.push_back({name, current, requested});
    }
}

void addIfDifferent(std::vector<RestartSetting>& differences, const std::string& name, std::uint32_t current,
                    std::uint32_t requested)
{
    addIfDifferent(differences, name, std::to_string(current), std::to_string(requested));
}

}

bool operator==(const PluginSettings& left, const PluginSettings& right)
{
    return left.library == right.library && left.settings->size() == right.settings->size()
           && std::equal(left.settings->begin(), left.settings->end(), right.settings->begin());
}

Configuration::Configuration(const std::string& file, Time time) : path(file), readAt(time)
{
    try {
        const int status = nim::io::pathStat(file, nim::io::PATH_EXISTS | nim::io::PATH_IS_DIR);
        if (status > 0 && (status & nim::io::PATH_IS_DIR) != 0) {
            throw ConfigurationError("cannot read " + file + ": " + nim::sys::sys_err_string(EISDIR));
        }
        std::error_code unknown;
        if (time == WHILE_RUNNING && status > 0 && !std::filesystem::is_regular_file(file, unknown)) {
            throw ConfigurationError("cannot reload " + file + ": it is not a regular file");
        }
        std::ifstream stream(file);
        if (!stream) {
            throw ConfigurationError("cannot read " + file + ": " + nim::sys::sys_err_string());
        }
        std::ostringstream warnings;
        std::ostringstream notes;
        properties.load(stream, file, warnings, notes, nim::io::Properties::SEV_WARNING);
        loadWarnings = warnings.str();
    } catch (const ConfigurationError&) {
        throw;
    } catch (...) {
        throw ConfigurationError(currentFailure());
    }
    resolveLogDirectory();
}

void Configuration::check(const std::vector<std::string>& sources) const
{
    pool();
    endLimit();
    stuckLimit();
    for (const std::string& name : plugins()) {
        plugin(name);
    }
    for (const std::string& name : adapters()) {
        plugin(name);
    }
    for (const std::string& name : sources) {
        source(name);
    }
}

const nim::io::Properties& Configuration::settings() const
{
    return properties;
}

std::string Configuration::logPath() const
{
    return LogSettings::chosenPath(properties);
}

void Configuration::configureLog() const
{
    LogSettings::apply(properties, path,
                       readAt == WHILE_RUNNING ? LogSettings::NON_BLOCKING : LogSettings::MAY_BLOCK);
}

std::vector<RestartSetting> Configuration::restartSettings(const Configuration& fresh,
                                                           const std::vector<std::string>& sources) const
{
    std::vector<RestartSetting> differences;
    addIfDifferent(differences, "host/plugins", quotedList(plugins()), quotedList(fresh.plugins()));
    addIfDifferent(differences, "host/adapters", quotedList(adapters()), quotedList(fresh.adapters()));
    for (const std::string& name : adapters()) {
        if (!(plugin(name) == fresh.plugin(name))) {
            differences.push_back(
                {"the settings of the adapter " + name, "those of the start", "the new ones"});
        }
    }
    const PoolSettings workers = pool();
    const PoolSettings requested = fresh.pool();
    addIfDifferent(differences, "pool/threads", workers.threads, requested.threads);
    addIfDifferent(differences, "pool/pending", workers.pending, requested.pending);
    for (const std::string& name : sources) {
        addIfDifferent(differences, "source/queue of " + name, source(name).queue, fresh.source(name).queue);
    }
    return differences;
}

std::string Configuration::warnings() const
{
    static const std::set<std::string> known = {"host/plugins",     "host/plugin.directory", "host/adapters",
                                                "host/end.seconds", "host/stuck.seconds",    "pool/threads",
                                                "pool/pending"};
    std::string text = loadWarnings;
    for (const auto& setting : properties) {
        const bool ours = setting.first.rfind("host/", 0) == 0 || setting.first.rfind("pool/", 0) == 0;
        if (ours && known.count(setting.first) == 0) {
            text += "WARNING: " + path + ": unknown setting \"" + setting.first + "\"\n";
        }
    }
    return text;
}

void Configuration::resolveLogDirectory()
{
    const std::string key = LogSettings::key(nim::log::Control::TAG_OUTPUT_DIRECTORY);
    const std::string directory = properties.getProperty(key);
    if (!directory.empty()) {
        properties.setProperty(key, resolvePath(directory));
    }
}

std::string Configuration::resolvePath(const std::string& file) const
{
    return !file.empty() && file.front() == '/' ? file : directoryOf(path) + file;
}

SourceSettings Configuration::source(const std::string& name) const
{
    const Settings settings(properties, path, name);
    return {settings.number("source/rate", 0),       settings.number("source/queue", 1),
            settings.boolean("source/block"),        settings.number("source/debug.every", 0),
            settings.number("source/fail.every", 0), settings.number("source/break.after", 0)};
}

std::vector<std::string> Configuration::names(const char* key) const
{
    const std::string host = "host";
    return Settings(properties, path, host).names(key);
}

std::vector<std::string> Configuration::plugins() const
{
    return names("plugins");
}

std::vector<std::string> Configuration::adapters() const
{
    return names("adapters");
}

PluginSettings Configuration::plugin(const std::string& name) const
{
    const std::unique_ptr<const nim::io::Properties> host(
        nim::io::Config::getDefaultedProperties(properties, "host"));
    std::unique_ptr<nim::io::Properties> own(nim::io::Config::getDefaultedProperties(properties, name));
    // The default base of relative paths in the settings of the plug-in.
    own->setProperty("directory", own->getProperty("directory", resolvePath(".")));
    const std::string directory = resolvePath(host->getProperty("plugin.directory", "."));
    return {directory + "/" + name + ".so", std::move(own)};
}

PoolSettings Configuration::pool() const
{
    const std::string name = "pool";
    const Settings settings(properties, path, name);
    return {settings.number("threads", 1, MAX_WORKERS), settings.number("pending", 1)};
}

std::chrono::seconds Configuration::endLimit() const
{
    return optionalSeconds("end.seconds");
}

std::chrono::seconds Configuration::stuckLimit() const
{
    return optionalSeconds("stuck.seconds");
}

/** Returns a setting of the host, or 0 if it is absent. */
std::chrono::seconds Configuration::optionalSeconds(const char* key) const
{
    const std::string name = "host";
    const Settings settings(properties, path, name);
    return std::chrono::seconds(settings.has(key) ? settings.number(key, 0) : 0);
}

}
