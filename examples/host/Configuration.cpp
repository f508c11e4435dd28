#include "Configuration.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <charconv>
#include <fstream>
#include <memory>
#include <sstream>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

const char LOG_PREFIX[] = "com.kor.dal.nim.log.Control.";

/** The settings of one instance; complains of a bad one with the file and the instance. */
class Settings
{
public:
    Settings(const nim::io::Properties& all, const std::string& file, const std::string& instance)
        : effective(nim::io::Config::getDefaultedProperties(all, instance)), path(file), name(instance)
    {
    }

    std::uint32_t number(const char* key, std::uint32_t least) const
    {
        const std::string& text = effective->getProperty(key);
        std::uint32_t value = 0;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || stop != text.data() + text.size() || value < least) {
            complain(key, "a number from " + std::to_string(least), text);
        }
        return value;
    }

    /** Names of letters, digits, "-" and "_", separated by blanks. */
    std::vector<std::string> names(const char* key) const
    {
        const std::string& text = effective->getProperty(key);
        if (text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_ ")
            != std::string::npos) {
            complain(key, "a list of names", text);
        }
        std::vector<std::string> list;
        nim::type::CompositeString words(text, " ", true);
        for (std::string word = words.next(); !word.empty(); word = words.next()) {
            list.push_back(word);
        }
        return list;
    }

    bool truth(const char* key) const
    {
        const std::string& text = effective->getProperty(key);
        if (text != nim::io::Config::VAL_TRUE && text != nim::io::Config::VAL_FALSE) {
            complain(key, "true or false", text);
        }
        return text == nim::io::Config::VAL_TRUE;
    }

private:
    [[noreturn]] void complain(const char* key, const std::string& wanted, const std::string& text) const
    {
        throw ConfigurationError(path + ": " + key + " of " + name + " is to be " + wanted + ", not \"" + text
                                 + "\"");
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

/** The same file under another spelling: with one more "/" ahead of the name, "./" without a folder, or
 * without it. */
std::string respelled(const std::string& path)
{
    const std::size_t name = directoryOf(path).size();
    if (name == 0) {
        return "./" + path;
    }
    if (path.compare(0, name, "./") == 0) {
        return path.substr(name);
    }
    const bool doubled = name >= 2 && path[name - 2] == '/';
    return doubled ? path.substr(0, name - 1) + path.substr(name)
                   : path.substr(0, name) + path.substr(name - 1);
}

}

Configuration::Configuration(const std::string& file) : path(file)
{
    try {
        const int status = nim::io::pathStat(file, nim::io::PATH_EXISTS | nim::io::PATH_IS_DIR);
        if (status > 0 && (status & nim::io::PATH_IS_DIR) != 0) {
            throw ConfigurationError("cannot read " + file + ": " + nim::sys::sys_err_string(EISDIR));
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
    } catch (const std::exception& exc) {
        throw ConfigurationError(exc.what());
    }
    anchorLogDirectory();
}

void Configuration::anchorLogDirectory()
{
    const std::string key = std::string(LOG_PREFIX) + nim::log::Control::TAG_OUTPUT_DIRECTORY;
    const std::string directory = properties.getProperty(key);
    if (!directory.empty()) {
        properties.setProperty(key, anchored(directory));
    }
}

std::string Configuration::anchored(const std::string& file) const
{
    return !file.empty() && file.front() == '/' ? file : directoryOf(path) + file;
}

void Configuration::configureLog() const
{
    nim::log::Control& control = ::com_kor_dal_nim_log_control;
    try {
        nim::log::Control::StringColl filter;
        control.getModuleFilter(filter);
        if (!filter.empty()) {
            control.setModuleFilter("", false);
        }
        nim::log::Control::SeverityColl mask;
        control.getSeverityMask(mask);
        if (mask.front() != nim::log::Severity_NONE) {
            control.setSeverityMask(nim::log::Severity_NONE, false);
        }
        const std::string before = control.getPath();
        nim::sys::System::setConfiguration(properties);
        const bool isFile =
            properties.getProperty(std::string(LOG_PREFIX) + nim::log::Control::TAG_OUTPUT_STREAM).empty();
        if (isFile && control.getPath() == before) {
            // A path that is in force already would change nothing: spelled anew, it lets go of a file
            // that was moved away, and the next record opens the one that stands there now.
            control.setPath(respelled(before));
        }
    } catch (const std::exception& exc) {
        throw ConfigurationError(path + ": " + exc.what());
    }
}

SourceSettings Configuration::source(const std::string& name) const
{
    const Settings settings(properties, path, name);
    return {settings.number("source/rate", 0),       settings.number("source/queue", 1),
            settings.truth("source/block"),          settings.number("source/debug.every", 0),
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
    // Where its relative paths begin, unless it is told.
    own->setProperty("directory", own->getProperty("directory", anchored(".")));
    const std::string directory = anchored(host->getProperty("plugin.directory", "."));
    return {directory + "/" + name + ".so", std::move(own)};
}

PoolSettings Configuration::pool() const
{
    const std::string name = "pool";
    const Settings settings(properties, path, name);
    return {settings.number("threads", 1), settings.number("pending", 1)};
}

}
