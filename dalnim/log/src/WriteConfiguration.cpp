#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <dalnim/type/StringOps.hpp>

#include <cctype>
#include <ctime>
#include <sstream>

namespace com::kor::dal::nim::log {

namespace {

constexpr char WHITE_SPACE[] = " \t\n\v\f\r";
constexpr char DATE_PLACEHOLDER[] = "<date>";

/** The value of one of the log's keys; empty when it is missing. */
const String& setting(const io::Properties& opts, const char* tag)
{
    return opts.getProperty(String(NAMESPACE_NAME) + '.' + Control::CLASS_NAME + '.' + tag);
}

/** Writes the present UTC date, as "20261114", whatever the log's local time setting says. */
std::size_t get_filename_date(char* buf, std::size_t bufsz)
{
    std::tm broken_down;
    sys::System::utctime(broken_down, std::time(nullptr));
    return std::strftime(buf, bufsz, "%Y%m%d", &broken_down);
}

String filenameDate()
{
    char text[32];
    return String(text, get_filename_date(text, sizeof text));
}

void insertDate(String& file)
{
    const std::size_t position = file.rfind(DATE_PLACEHOLDER);
    if (position != String::npos) {
        file.replace(position, sizeof DATE_PLACEHOLDER - 1, filenameDate());
    }
}

StringVector words(const String& text)
{
    StringVector result;
    type::CompositeString rest(text, WHITE_SPACE, true);
    for (String word = rest.next(); !word.empty(); word = rest.next()) {
        result.push_back(word);
    }
    return result;
}

bool isTrue(const String& value)
{
    return type::StringOps::compareIgnoreCase(value, String("true")) == 0;
}

/** The decimal number that a text begins with, 0 if it does not begin with one. */
std::size_t leadingNumber(const String& text)
{
    std::istringstream stream(text);
    std::size_t number = 0;
    if (std::isdigit((stream >> std::ws).peek())) {
        stream >> number;
    }
    return number;
}

}

void Write::setConfiguration(const io::Properties& opts)
{
    const sys::StackTrack track("setConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    configureOutput(opts);

    const String& localtime = setting(opts, TAG_RECORD_LOCAL_TIME);
    if (!localtime.empty()) {
        setLocaltime(isTrue(localtime));
    }

    configureSeverity(opts);

    const String& outputBits = setting(opts, TAG_OUTPUT_MASK);
    if (!outputBits.empty()) {
        unsigned int mask = Mask_NONE;
        for (const String& name : words(outputBits)) {
            mask |= getOutputBit(name);
        }
        setOutputMask(mask);
    }

    for (const String& module : words(setting(opts, TAG_MODULE_LIST))) {
        setModuleFilter(module, true);
    }

    const String& remote = setting(opts, TAG_ALLOW_REMOTE);
    if (!remote.empty()) {
        allowRemoteControl(isTrue(remote));
    }

    // The limits come last, for the file that has just been chosen.
    const String& numberOfFiles = setting(opts, TAG_MAX_NUMBER_OF_FILES);
    if (!numberOfFiles.empty()) {
        setMaxNumberOfFiles(leadingNumber(numberOfFiles));
    }
    const String& fileSize = setting(opts, TAG_MAX_FILE_SIZE);
    if (!fileSize.empty()) {
        setMaxFileSize(leadingNumber(fileSize));
    }
}

void Write::configureOutput(const io::Properties& opts)
{
    const String& stream = setting(opts, TAG_OUTPUT_STREAM);
    if (!stream.empty()) {
        setStream(stream);
        return;
    }
    String file = setting(opts, TAG_OUTPUT_FILE);
    insertDate(file);
    if (file.find_first_of("/\\") != String::npos) {
        setPath(file);
        return;
    }
    const String& directory = setting(opts, TAG_OUTPUT_DIRECTORY);
    if (!directory.empty()) {
        setPath(directory + '/' + (!file.empty() ? file : getProcessName() + '-' + filenameDate() + ".log"));
    } else if (!file.empty()) {
        setPath("log/" + file);
    } else {
        setStream(static_cast<std::ios&>(*STD_LOG_STREAMS[0].addr));
    }
}

void Write::configureSeverity(const io::Properties& opts)
{
    const String& severities = setting(opts, TAG_SEVERITY_MASK);
    if (!severities.empty()) {
        setSeverityMask(words(severities), true);
        return;
    }
    const String& threshold = setting(opts, TAG_SEVERITY_ID);
    if (!threshold.empty()) {
        setSeverity(threshold);
    }
}

}
