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
        throw ConfigurationError(path + ": " + key + " of " + name + " is to be " + wanted + ", not \"" + text +
                                 "\"");
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
    if (!directory.empty() && directory.front() != '/') {
        properties.setProperty(key, directoryOf(path) + directory);
    }
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
        nim::sys::System::setConfiguration(properties);
    } catch (const std::exception& exc) {
        throw ConfigurationError(path + ": " + exc.what());
    }
}

SourceSettings Configuration::source(const std::string& name) const
{
    const Settings settings(properties, path, name);
    return {settings.number("source/rate", 0),        settings.number("source/queue", 1),
            settings.truth("source/block"),           settings.number("source/debug.every", 0),
            settings.number("source/fail.every", 0),  settings.number("source/break.after", 0)};
}

PoolSettings Configuration::pool() const
{
    const std::string name = "pool";
    const Settings settings(properties, path, name);
    return {settings.number("threads", 1), settings.number("pending", 1)};
}

}
