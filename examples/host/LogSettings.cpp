#include "LogSettings.hpp"

#include "Configuration.hpp"
#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace nimhost::LogSettings {

namespace nim = com::kor::dal::nim;
using nim::io::Properties;
using nim::log::Control;

namespace {

constexpr mode_t DIRECTORY_MODE = 0755;
constexpr mode_t FILE_MODE = 0666;
/** The module whose logger the stream "CIMOM" means. */
const char CIMOM_MODULE[] = "com_kor_dal_nim_log_module_CIMOM";

const std::string& value(const Properties& properties, const char* tag)
{
    return properties.getProperty(key(tag));
}

bool isNumber(const std::string& text)
{
    std::size_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

bool isTruth(const std::string& text)
{
    const auto is = [&](const std::string& word) {
        return nim::type::StringOps::compareIgnoreCase(text, word) == 0;
    };
    return is(nim::io::Config::VAL_TRUE) || is(nim::io::Config::VAL_FALSE);
}

/** Whether each word of a text has a meaning: `look` throws std::out_of_range for one that has none. */
template <class Look>
bool areWords(const std::string& text, Look look)
{
    nim::type::CompositeString words(text, " \t\n\v\f\r", true);
    try {
        for (std::string word = words.next(); !word.empty(); word = words.next()) {
            look(word);
        }
    } catch (const std::out_of_range&) {
        return false;
    }
    return true;
}

bool isStream(const std::string& text)
{
    const auto& streams = nim::log::STD_LOG_STREAMS;
    return text == "CIMOM" || std::any_of(std::begin(streams), std::end(streams), [&](const auto& stream) {
               return text == stream.name;
           });
}

bool isCimomThere()
{
    Control::StringColl modules;
    ::com_kor_dal_nim_log_control.getModulesRegisteredDynamic(modules);
    return std::find(modules.begin(), modules.end(), CIMOM_MODULE) != modules.end();
}

void require(bool good, const Properties& properties, const std::string& file, const char* tag,
             const char* wanted)
{
    if (!good) {
        throw ConfigurationError(file + ": " + key(tag) + " is to be " + wanted + ", not \""
                                 + value(properties, tag) + "\"");
    }
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

void requireDirectory(const std::string& path, const std::string& file)
{
    const std::string directory = directoryOf(path);
    if (!directory.empty() && mkdir(directory.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST) {
        const int error = errno;
        struct stat status = {};
        // A directory that exists may be refused for another reason, such as a file system that is read-only.
        if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            throw ConfigurationError(file + ": cannot make the directory of the log, " + directory + ": "
                                     + nim::sys::sys_err_string(error));
        }
    }
}

void requireFile(const std::string& path, const std::string& file, bool running)
{
    requireDirectory(path, file);
    struct stat status = {};
    // The opening of a FIFO waits for its reader, and that of a device may have effects.
    if (!running && stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)
        && !S_ISDIR(status.st_mode)) {
        return;
    }
    if (const int error = openingError(path)) {
        throw ConfigurationError(file + ": cannot open the log, " + path + ": "
                                 + nim::sys::sys_err_string(error));
    }
}

/** Another spelling of a path: with one more "/" in front of the name, or "./" if it has no directory; or
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

std::string key(const char* tag)
{
    return std::string("com.kor.dal.nim.log.Control.") + tag;
}

std::string chosenPath(const Properties& properties)
{
    if (!value(properties, Control::TAG_OUTPUT_STREAM).empty()) {
        return {};
    }
    const auto withDate = [](std::string text) {
        const std::string placeholder = "<date>";
        const std::size_t position = text.rfind(placeholder);
        const std::time_t now = std::time(nullptr);
        std::tm parts = {};
        gmtime_r(&now, &parts);
        char date[16];
        const std::size_t length = std::strftime(date, sizeof date, "%Y%m%d", &parts);
        return position != std::string::npos
                   ? text.replace(position, placeholder.size(), std::string(date, length))
                   : text;
    };
    const std::string file = withDate(value(properties, Control::TAG_OUTPUT_FILE));
    if (file.find_first_of("/\\") != std::string::npos) {
        return file;
    }
    const std::string& directory = value(properties, Control::TAG_OUTPUT_DIRECTORY);
    if (directory.empty()) {
        return file.empty() ? file : "log/" + file;
    }
    return directory + '/'
           + (!file.empty() ? file : nim::log::getProcessName() + withDate("-<date>") + ".log");
}

int openingError(const std::string& path)
{
    mkdir(directoryOf(path).c_str(), DIRECTORY_MODE);
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, FILE_MODE);
    if (descriptor == -1) {
        return errno;
    }
    close(descriptor);
    return 0;
}

void check(const Properties& properties, const std::string& file, bool running)
{
    struct Rule
    {
        const char* tag;
        const char* wanted;
        std::function<bool(const std::string&)> allows;
    };
    const auto areSeverities = [](const std::string& text) {
        return areWords(text, nim::log::getSeverityId);
    };
    const Rule rules[] = {
        {Control::TAG_OUTPUT_STREAM, "STDERR, STDOUT, STDLOG or CIMOM", isStream},
        {Control::TAG_RECORD_LOCAL_TIME, "true or false", isTruth},
        {Control::TAG_SEVERITY_MASK, "names of severities", areSeverities},
        {Control::TAG_SEVERITY_ID, "the name of a severity",
         [&](const std::string& text) {
             return areSeverities(text) && text.find_first_of(" \t\n\v\f\r") == std::string::npos;
         }},
        {Control::TAG_OUTPUT_MASK, "names of fields",
         [](const std::string& text) { return areWords(text, nim::log::getOutputBit); }},
        {Control::TAG_ALLOW_REMOTE, "true or false", isTruth},
        {Control::TAG_MAX_NUMBER_OF_FILES, "a number of files", isNumber},
        {Control::TAG_MAX_FILE_SIZE, "a number of bytes", isNumber},
    };
    for (const Rule& rule : rules) {
        const std::string& text = value(properties, rule.tag);
        require(text.empty() || rule.allows(text), properties, file, rule.tag, rule.wanted);
    }
    if (value(properties, Control::TAG_OUTPUT_STREAM) == "CIMOM" && !isCimomThere()) {
        throw ConfigurationError(file + ": CIMOM stream is not available");
    }
    const std::string path = chosenPath(properties);
    if (!path.empty()) {
        requireFile(path, file, running);
    }
}

void apply(const Properties& properties, const std::string& file)
{
    Control& control = ::com_kor_dal_nim_log_control;
    try {
        Control::StringColl filter;
        control.getModuleFilter(filter);
        if (!filter.empty()) {
            control.setModuleFilter("", false);
        }
        Control::SeverityColl mask;
        control.getSeverityMask(mask);
        if (mask.front() != nim::log::Severity_NONE) {
            control.setSeverityMask(nim::log::Severity_NONE, false);
        }
        const std::string before = control.getPath();
        nim::sys::System::setConfiguration(properties);
        const std::string after = control.getPath();
        if (!after.empty() && after == before) {
            reopen(after);
        }
    } catch (...) {
        throw ConfigurationError(file + ": " + currentFailure());
    }
}

void reopen(const std::string& path)
{
    Control& control = ::com_kor_dal_nim_log_control;
    // A path that is in effect already would change nothing. Spelled differently, it closes a file that was
    // moved away, and the next record opens the one that is there now.
    control.setPath(control.getPath() == path ? respelled(path) : path);
}

}
