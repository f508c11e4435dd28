#ifndef DALNIM_LOG_SRC_SETTINGSTABLE_HPP
#define DALNIM_LOG_SRC_SETTINGSTABLE_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Control.hpp>

#include <cstddef>
#include <list>
#include <map>
#include <stdexcept>
#include <vector>

namespace com::kor::dal::nim::log {

/** The values of a configuration by the last part of their key, such as "severity.id". None is empty. */
typedef std::map<String, String> SettingValues;

/** All settings of a logger: at construction the defaults, which apply to keys that a configuration lacks. */
struct LogSettings
{
    LogSettings();

    /** One of the standard streams, or null: then the file at `path`, or, if that is empty, "CIMOM". */
    std::ostream* stream;
    /** Whether the configuration names the stream, so that its descriptor is to be looked at again. */
    bool isStreamNamed;
    String path;
    /** The severity mask, or 0: then the threshold `minimum` decides. */
    unsigned int severityMask;
    Severity minimum;
    unsigned int outputMask;
    /** The module filter, without duplicates. */
    std::list<String> modules;
    bool localtime;
    bool remoteControl;
    bool escapesControls;
    bool fallsBack;
    /** Or Control::MODE_OF_UMASK. */
    unsigned int fileMode;
    std::size_t maxNumberOfFiles;
    /** Bytes. */
    std::size_t maxFileSize;
};

/** A key of the configuration: a row of the one table that everything that reads a configuration uses. */
struct Setting
{
    /** The last part of the key, one of Control::TAG_*. */
    const char* tag;
    /** The tag of the key that takes precedence over this one, or null. */
    const char* overriddenBy;
    /** Stores a value; returns false for one that `allowed` does not describe. */
    bool (*read)(const String& value, LogSettings& settings);
    /** Describes the values that read() accepts, following "must be". */
    const char* allowed;
    /**
     * Calls the setter for a value, as setConfiguration() does: as laxly as it always has. Null for the keys
     * of the output, which are applied together.
     */
    void (*set)(const String& value, Control& logger);
};

/** The rows, in the order in which setConfiguration() applies them. */
class SettingsTable
{
public:
    static const Setting* begin() noexcept;
    static const Setting* end() noexcept;
    /** The row of a tag, or null. */
    static const Setting* find(const String& tag) noexcept;

    /** The tags, as "a, b and c". */
    static String tags();
    /** Whether `setting` has a value that takes effect: its own, with none that takes precedence. */
    static bool applies(const Setting& setting, const SettingValues& values);

    /** The path that the keys of the output select, today's date in it; empty if they select no file. */
    static String outputPath(const SettingValues& values);
    /** The value of a tag, or an empty text. */
    static String valueOf(const SettingValues& values, const char* tag);

    /** The output that settings select cannot be opened; the text says why. */
    struct OutputFailure : std::runtime_error
    {
        using runtime_error::runtime_error;
    };

    /** Adds the output to `bad` if it is a file that could not be opened. Does not create the file. */
    static void checkPath(const SettingValues& values, const LogSettings& settings,
                          std::vector<Control::BadSetting>& bad);
    /** What is wrong with a path that cannot be opened for the reason `error`. */
    static String unopenable(const String& path, const String& error);
    /** The entry of an output that cannot be opened, or be shared, for this reason. */
    static Control::BadSetting badOutput(const SettingValues& values, const String& reason);
    /** Throws `std::invalid_argument` that lists the bad settings, if there are any. */
    static void requireNone(const std::vector<Control::BadSetting>& bad);

    /**
     * Reads all values strictly, and without touching any logger or file system. Returns the settings that
     * are bad; the keys that no setting has are among them.
     */
    static std::vector<Control::BadSetting> read(const SettingValues& values, LogSettings& settings);
    /** The full key of a tag. */
    static String key(const String& tag);
};

}

#endif
