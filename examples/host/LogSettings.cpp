#include "LogSettings.hpp"

#include "Configuration.hpp"
#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nimhost::LogSettings {

namespace nim = com::kor::dal::nim;
using nim::io::Properties;
using nim::log::Control;

namespace {

const std::string& value(const Properties& properties, const char* tag)
{
    return properties.getProperty(key(tag));
}

/** Returns true if the path is a FIFO without a reader, so that opening it would block. */
bool wouldBlock(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1) {
        return errno == ENXIO;
    }
    close(descriptor);
    return false;
}

/**
 * Returns true if standard error is connected to the system journal: then JOURNAL_STREAM contains its device
 * and inode numbers. A process that has redirected it inherits the variable, so both are compared.
 */
bool isJournal(int descriptor)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status = {};
    return stream != nullptr && fstat(descriptor, &status) == 0
           && std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) == stream;
}

/** Returns the settings, with a priority in each line for the journal unless they say otherwise. */
Properties withPriority(const Properties& properties)
{
    Properties completed(properties);
    if (value(properties, Control::TAG_PRIORITY_PREFIX).empty() && isJournal(STDERR_FILENO)) {
        completed.setProperty(key(Control::TAG_PRIORITY_PREFIX), "true");
    }
    return completed;
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

void apply(const Properties& properties, const std::string& file, Opening opening)
{
    Control& control = ::com_kor_dal_nim_log_control;
    const std::string path = chosenPath(properties);
    if (opening == NON_BLOCKING && !path.empty() && wouldBlock(path)) {
        throw ConfigurationError(file + ": cannot open the log, " + path + ": "
                                 + nim::sys::sys_err_string(ENXIO));
    }
    try {
        // First, because a failure after reconfigure() would leave the new settings in effect.
        if (!path.empty() && path == control.getPath()) {
            control.reopen();
        }
    } catch (...) {
        throw ConfigurationError(file + ": cannot reopen the log: " + currentFailure());
    }
    try {
        control.reconfigure(withPriority(properties));
    } catch (...) {
        throw ConfigurationError(file + ": " + currentFailure());
    }
}

}
