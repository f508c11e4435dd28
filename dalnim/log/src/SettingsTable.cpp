#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/SettingsTable.hpp>

#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/ModuleLimits.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <dalnim/type/StringOps.hpp>
#include <qv/pmx/api.h>
#include <qv/pmx/path.h>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace com::kor::dal::nim::log {

namespace {

constexpr char WHITE_SPACE[] = " \t\n\v\f\r";
constexpr char DATE_PLACEHOLDER[] = "<date>";
constexpr char CIMOM_STREAM[] = "CIMOM";

constexpr char ALLOWED_SEVERITY[] = "one of NONE, TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR and FATAL";
constexpr char ALLOWED_SEVERITIES[] =
    "names separated by white space, out of NONE, TRACE, DEBUG, INFO, NOTICE, "
    "WARNING, ERROR and FATAL";
constexpr char ALLOWED_FIELDS[] =
    "names separated by white space, out of NONE, DATETIME, TIMEZONE, SEVERITY, "
    "HOSTNAME, PROCESSNAME, PROCESSID, THREADID, MODULENAME, SOURCEFILE and "
    "LINENUMBER";
constexpr char ALLOWED_TIME_FORMAT[] = "one of LOCAL, UTC, UTC_MS, UTC_US, OFFSET, OFFSET_MS and OFFSET_US";
constexpr char ALLOWED_SWITCH[] = "true or false";

StringVector words(const String& text)
{
    StringVector result;
    type::CompositeString rest(text, WHITE_SPACE, true);
    for (String word = rest.next(); !word.empty(); word = rest.next()) {
        result.push_back(word);
    }
    return result;
}

bool equalsIgnoringCase(const String& value, const char* word)
{
    return type::StringOps::compareIgnoreCase(value, String(word)) == 0;
}

bool isTrue(const String& value)
{
    return equalsIgnoringCase(value, "true");
}

/** Returns the decimal number at the beginning of `text`, or 0 if there is none. */
std::size_t leadingNumber(const String& text)
{
    std::istringstream stream(text);
    std::size_t number = 0;
    if (std::isdigit((stream >> std::ws).peek())) {
        stream >> number;
    }
    return number;
}

/** Writes the current date in UTC, as "20261114", even if records carry local time. Returns its length. */
std::size_t get_filename_date(char* buf, std::size_t bufsz)
{
    std::tm broken_down;
    sys::System::utctime(broken_down, std::time(nullptr));
    return sys::internal::TimeZone::format(buf, bufsz, "%Y%m%d", broken_down);
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

/** Returns true if `convert` succeeds, false if it throws std::out_of_range because of an unknown name. */
template <class Convert>
bool converts(Convert convert)
{
    try {
        convert();
        return true;
    } catch (const std::out_of_range&) {
        return false;
    }
}

bool readSwitch(const String& value, bool& into)
{
    into = isTrue(value);
    return into || equalsIgnoringCase(value, "false");
}

/** A unit that may follow a number, and its factor. */
struct Unit
{
    const char* name;
    std::size_t factor;
};

constexpr Unit SIZE_UNITS[] = {
    {"", 1},           {"k", 1000},       {"M", 1000UL * 1000}, {"G", 1000UL * 1000 * 1000},
    {"KiB", 1U << 10}, {"MiB", 1U << 20}, {"GiB", 1U << 30},
};

/** Reads a decimal number followed by one of the units before `lastUnit`, the first of which is empty. */
bool readNumber(const String& value, std::size_t& into, const Unit* lastUnit)
{
    std::uint64_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    const String unit(stop, end);
    const Unit* const found =
        std::find_if(SIZE_UNITS, lastUnit, [&unit](const Unit& known) { return unit == known.name; });
    return error == std::errc() && found != lastUnit && !__builtin_mul_overflow(number, found->factor, &into);
}

/** A mode that setFileMode() rejects. */
constexpr unsigned int BAD_FILE_MODE = 0;

/** Returns the file mode that an octal number denotes, or BAD_FILE_MODE. */
unsigned int fileModeOf(const String& value)
{
    unsigned int mode = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, mode, 8);
    const bool isMode = error == std::errc() && stop == end && mode <= 0777 && (mode & 0200) != 0;
    return isMode ? mode : BAD_FILE_MODE;
}

/** Returns the string for use in a message, which a zero byte would end. */
String escaped(const String& text)
{
    LineBuffer line;
    appendEscaped(line, text);
    return String(line.view());
}

/** Returns why a log file cannot be opened, as the reason of a BadSetting; empty if it can be opened. */
String whyNotCreatable(const String& path)
{
    String created = path;
    const std::size_t slash = path.rfind('/');
    const String directory =
        slash == String::npos ? String() : path.substr(0, path.find_last_not_of('/', slash) + 1);
    if (!directory.empty() && path.find('\0') == String::npos && qv_si_isdir(directory.c_str()) == ENOENT) {
        // A missing directory (one level) is created when the file is opened.
        created = directory;
    }
    try {
        RX_Filespec(RX_String(created.data(), created.size()), RX_Filespec::CREATE, 0).filespec();
    } catch (const RX_Exception& exc) {
        return SettingsTable::unopenable(path, sys::sys_err_string(static_cast<int>(exc.getCode())));
    }
    return String();
}

bool readStream(const String& value, LogSettings& settings)
{
    const auto* const row = std::find_if(std::begin(STD_LOG_STREAMS), std::end(STD_LOG_STREAMS),
                                         [&value](const LogStreamRec& known) { return value == known.name; });
    settings.stream = row != std::end(STD_LOG_STREAMS) ? row->addr : nullptr;
    settings.isStreamNamed = settings.stream != nullptr;
    return settings.isStreamNamed || value == CIMOM_STREAM;
}

/** Accepts any value: the path depends on several keys, and is checked afterwards. */
bool readPathPart(const String&, LogSettings&)
{
    return true;
}

bool readSeverityMask(const String& value, LogSettings& settings)
{
    const StringVector names = words(value);
    return !names.empty() && converts([&] {
        for (const String& name : names) {
            settings.severityMask |= 1U << static_cast<unsigned int>(getSeverityId(name));
        }
    });
}

bool readSeverity(const String& value, LogSettings& settings)
{
    return converts([&] { settings.minimum = getSeverityId(value); });
}

bool readOutputMask(const String& value, LogSettings& settings)
{
    settings.outputMask = Mask_NONE;
    const StringVector names = words(value);
    return !names.empty() && converts([&] {
        for (const String& name : names) {
            settings.outputMask |= getOutputBit(name);
        }
    });
}

bool readModules(const String& value, LogSettings& settings)
{
    for (const String& name : words(value)) {
        if (std::find(settings.modules.begin(), settings.modules.end(), name) == settings.modules.end()) {
            settings.modules.push_back(name);
        }
    }
    return !settings.modules.empty();
}

bool readModuleLimits(const String& value, std::vector<Control::ModuleLimit>& limits)
{
    for (const String& word : words(value)) {
        if (!ModuleLimits::parse(word, limits.emplace_back())) {
            return false;
        }
    }
    return !limits.empty();
}

void setModuleLimits(const String& value, Control& logger)
{
    std::vector<Control::ModuleLimit> limits;
    if (!readModuleLimits(value, limits)) {
        throw std::out_of_range("Illegal Module Limit");
    }
    logger.setModuleLimits(limits);
}

void setOutputMask(const String& value, Control& logger)
{
    unsigned int mask = Mask_NONE;
    for (const String& name : words(value)) {
        mask |= getOutputBit(name);
    }
    logger.setOutputMask(mask);
}

void addModules(const String& value, Control& logger)
{
    for (const String& name : words(value)) {
        logger.setModuleFilter(name, true);
    }
}

constexpr Setting SETTINGS[] = {
    // First the settings that the reports of the following changes depend on.
    {Control::TAG_ESCAPE_CONTROLS, nullptr,
     [](const String& value, LogSettings& settings) { return readSwitch(value, settings.escapesControls); },
     ALLOWED_SWITCH, [](const String& value, Control& logger) { logger.setEscapeControls(isTrue(value)); }},
    {Control::TAG_FALLBACK, nullptr,
     [](const String& value, LogSettings& settings) { return readSwitch(value, settings.fallsBack); },
     ALLOWED_SWITCH, [](const String& value, Control& logger) { logger.setFallback(isTrue(value)); }},
    {Control::TAG_PRIORITY_PREFIX, nullptr,
     [](const String& value, LogSettings& settings) { return readSwitch(value, settings.priorityPrefix); },
     ALLOWED_SWITCH, [](const String& value, Control& logger) { logger.setPriorityPrefix(isTrue(value)); }},
    {Control::TAG_FILE_MODE, nullptr,
     [](const String& value, LogSettings& settings) {
         settings.fileMode = fileModeOf(value);
         return settings.fileMode != BAD_FILE_MODE;
     },
     "an octal number up to 0777 that lets the owner write, such as 0640",
     [](const String& value, Control& logger) { logger.setFileMode(fileModeOf(value)); }},
    {Control::TAG_OUTPUT_STREAM, nullptr, readStream, "STDERR, STDOUT, STDLOG or CIMOM", nullptr},
    {Control::TAG_OUTPUT_FILE, Control::TAG_OUTPUT_STREAM, readPathPart, "", nullptr},
    {Control::TAG_OUTPUT_DIRECTORY, Control::TAG_OUTPUT_STREAM, readPathPart, "", nullptr},
    {Control::TAG_RECORD_LOCAL_TIME, nullptr,
     [](const String& value, LogSettings& settings) { return readSwitch(value, settings.localtime); },
     ALLOWED_SWITCH, [](const String& value, Control& logger) { logger.setLocaltime(isTrue(value)); }},
    {Control::TAG_TIME_FORMAT, nullptr,
     [](const String& value, LogSettings& settings) {
         return converts([&] { settings.timeFormat = getTimeFormatId(value); });
     },
     ALLOWED_TIME_FORMAT, [](const String& value, Control& logger) { logger.setTimeFormat(value); }},
    {Control::TAG_SEVERITY_MASK, nullptr, readSeverityMask, ALLOWED_SEVERITIES,
     [](const String& value, Control& logger) { logger.setSeverityMask(words(value), true); }},
    {Control::TAG_SEVERITY_ID, Control::TAG_SEVERITY_MASK, readSeverity, ALLOWED_SEVERITY,
     [](const String& value, Control& logger) { logger.setSeverity(value); }},
    {Control::TAG_OUTPUT_MASK, nullptr, readOutputMask, ALLOWED_FIELDS, setOutputMask},
    {Control::TAG_MODULE_LIST, nullptr, readModules, "names and patterns separated by white space",
     addModules},
    {Control::TAG_MODULE_LIMITS, nullptr,
     [](const String& value, LogSettings& settings) {
         return readModuleLimits(value, settings.moduleLimits);
     },
     "limits such as shop.*=10/50 (records per second and burst, each from 1 to 1000000) or "
     "shop.*=10/50/ERROR, "
     "separated by white space",
     setModuleLimits},
    {Control::TAG_ALLOW_REMOTE, nullptr,
     [](const String& value, LogSettings& settings) { return readSwitch(value, settings.remoteControl); },
     ALLOWED_SWITCH, [](const String& value, Control& logger) { logger.allowRemoteControl(isTrue(value)); }},
    // Last the limits, which apply to the selected file.
    {Control::TAG_MAX_NUMBER_OF_FILES, nullptr,
     [](const String& value, LogSettings& settings) {
         return readNumber(value, settings.maxNumberOfFiles, SIZE_UNITS + 1);
     },
     "a decimal number",
     [](const String& value, Control& logger) { logger.setMaxNumberOfFiles(leadingNumber(value)); }},
    {Control::TAG_MAX_FILE_SIZE, nullptr,
     [](const String& value, LogSettings& settings) {
         return readNumber(value, settings.maxFileSize, std::end(SIZE_UNITS));
     },
     "a decimal number of bytes, or one directly followed by k, M, G, KiB, MiB or GiB",
     [](const String& value, Control& logger) { logger.setMaxFileSize(leadingNumber(value)); }},
};

}

LogSettings::LogSettings()
    : stream(STD_LOG_STREAMS[0].addr), isStreamNamed(false), severityMask(0),
      minimum(Control::getSeverityDefault()), outputMask(Control::getOutputMaskDefault()), localtime(false),
      timeFormat(TimeFormat_LOCAL), remoteControl(false), escapesControls(false), fallsBack(false),
      priorityPrefix(false), fileMode(Control::MODE_OF_UMASK), maxNumberOfFiles(0), maxFileSize(0)
{
}

const Setting* SettingsTable::begin() noexcept
{
    return std::begin(SETTINGS);
}

const Setting* SettingsTable::end() noexcept
{
    return std::end(SETTINGS);
}

const Setting* SettingsTable::find(const String& tag) noexcept
{
    const Setting* const found =
        std::find_if(begin(), end(), [&tag](const Setting& setting) { return tag == setting.tag; });
    return found == end() ? nullptr : found;
}

String SettingsTable::tags()
{
    String text;
    for (const Setting* setting = begin(); setting != end(); ++setting) {
        text += setting == begin() ? "" : setting + 1 == end() ? " and " : ", ";
        text += setting->tag;
    }
    return text;
}

String SettingsTable::key(const String& tag)
{
    return String(NAMESPACE_NAME) + '.' + Control::CLASS_NAME + '.' + tag;
}

String SettingsTable::valueOf(const SettingValues& values, const char* tag)
{
    const auto found = values.find(tag);
    return found == values.end() ? String() : found->second;
}

bool SettingsTable::applies(const Setting& setting, const SettingValues& values)
{
    return values.count(setting.tag) != 0
           && (setting.overriddenBy == nullptr || values.count(setting.overriddenBy) == 0);
}

String SettingsTable::outputPath(const SettingValues& values)
{
    String file = valueOf(values, Control::TAG_OUTPUT_FILE);
    insertDate(file);
    if (file.find_first_of("/\\") != String::npos) {
        return file;
    }
    const String directory = valueOf(values, Control::TAG_OUTPUT_DIRECTORY);
    if (!directory.empty()) {
        return directory + '/' + (!file.empty() ? file : getProcessName() + '-' + filenameDate() + ".log");
    }
    return !file.empty() ? "log/" + file : file;
}

String SettingsTable::unopenable(const String& path, const String& error)
{
    return "must be a path that can be opened, but " + escaped(path) + ": " + error;
}

void SettingsTable::checkPath(const SettingValues& values, const LogSettings& settings,
                              std::vector<Control::BadSetting>& bad)
{
    if (settings.path.empty()) {
        return;
    }
    const String reason = whyNotCreatable(settings.path);
    if (!reason.empty()) {
        const Control::BadSetting output = badOutput(values, reason);
        const auto isLater = [&output](const Control::BadSetting& other) { return output.key < other.key; };
        bad.insert(std::find_if(bad.begin(), bad.end(), isLater), output);
    }
}

Control::BadSetting SettingsTable::badOutput(const SettingValues& values, const String& reason)
{
    for (const char* const tag : {Control::TAG_OUTPUT_STREAM, Control::TAG_OUTPUT_FILE}) {
        if (const auto found = values.find(tag); found != values.end()) {
            return {key(tag), found->second, reason};
        }
    }
    return {key(Control::TAG_OUTPUT_DIRECTORY), valueOf(values, Control::TAG_OUTPUT_DIRECTORY), reason};
}

void SettingsTable::requireNone(const std::vector<Control::BadSetting>& bad)
{
    if (bad.empty()) {
        return;
    }
    String text = "Bad log configuration";
    const char* separator = ": ";
    for (const Control::BadSetting& setting : bad) {
        text += separator + setting.key + " = \"" + escaped(setting.value) + "\" " + setting.reason;
        separator = "; ";
    }
    throw std::invalid_argument(text);
}

std::vector<Control::BadSetting> SettingsTable::read(const SettingValues& values, LogSettings& settings)
{
    std::vector<Control::BadSetting> bad;
    for (const auto& [tag, value] : values) {
        const Setting* const setting = find(tag);
        if (setting == nullptr) {
            bad.push_back({key(tag), value, "is not a setting; the settings are " + tags()});
        } else if (!setting->read(value, settings)) {
            bad.push_back({key(tag), value, String("must be ") + setting->allowed});
        }
    }
    if (settings.severityMask != 0) {
        // As in the setters: NONE adds nothing to a mask, and a mask of NONE alone lets all records pass.
        settings.severityMask &= ~1U;
        settings.minimum =
            static_cast<Severity>(settings.severityMask != 0 ? __builtin_ctz(settings.severityMask) : 0);
    }
    if (values.count(Control::TAG_OUTPUT_STREAM) == 0) {
        settings.path = outputPath(values);
        if (!settings.path.empty()) {
            settings.stream = nullptr;
        }
    }
    return bad;
}

}
