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

/** Values of a configuration by tag, the last part of the key, such as "severity.id". No value is empty. */
typedef std::map<String, String> SettingValues;

/** All settings of a logger. The constructor sets the defaults, which apply to absent keys. */
struct LogSettings
{
    LogSettings();

    /** A standard stream; or null for the file at `path`, or for "CIMOM" if `path` is empty. */
    std::ostream* stream;
    /** Whether the configuration names the stream: its descriptor is then checked again. */
    bool isStreamNamed;
    String path;
    /** The severity mask; or 0 if the threshold `minimum` applies. */
    unsigned int severityMask;
    Severity minimum;
    unsigned int outputMask;
    /** The module filter, without duplicates. */
    std::list<String> modules;
    std::vector<Control::ModuleLimit> moduleLimits;
    bool localtime;
    TimeFormat timeFormat;
    bool remoteControl;
    bool escapesControls;
    bool fallsBack;
    bool priorityPrefix;
    /** Permissions of new files, or Control::MODE_OF_UMASK. */
    unsigned int fileMode;
    std::size_t maxNumberOfFiles;
    /** In bytes. */
    std::size_t maxFileSize;
};

/** A configuration key: a row of the table that all readers of a configuration share. */
struct Setting
{
    /** Last part of the key, one of Control::TAG_*. */
    const char* tag;
    /** Tag of the key that takes precedence over this one, or null. */
    const char* overriddenBy;
    /** Stores a value in `settings`. Returns false if the value is not one that `allowed` describes. */
    bool (*read)(const String& value, LogSettings& settings);
    /** The values that read() accepts, as a message that begins with "must be" continues. */
    const char* allowed;
    /**
     * Calls the setter with a value, for setConfiguration(), which does not check values strictly. Null for
     * the keys of the output, which are applied together.
     */
    void (*set)(const String& value, Control& logger);
};

/** The table of all configuration keys, in the order in which setConfiguration() applies them. */
class SettingsTable
{
public:
    static const Setting* begin() noexcept;
    static const Setting* end() noexcept;
    /** Returns the row of a tag, or null. */
    static const Setting* find(const String& tag) noexcept;

    /** Returns all tags, as "a, b and c". */
    static String tags();
    /** Returns true if `setting` has a value, and no other value takes precedence. */
    static bool applies(const Setting& setting, const SettingValues& values);

    /**
     * Returns the path that the keys of the output select, with today's date; empty if they select no file.
     */
    static String outputPath(const SettingValues& values);
    /** Returns the value of a tag, or an empty string. */
    static String valueOf(const SettingValues& values, const char* tag);

    /** The selected output cannot be opened. The message is the reason of a BadSetting. */
    struct OutputFailure : std::runtime_error
    {
        using runtime_error::runtime_error;
    };

    /** Adds the output to `bad` if it is a file that cannot be opened. Does not create the file. */
    static void checkPath(const SettingValues& values, const LogSettings& settings,
                          std::vector<Control::BadSetting>& bad);
    /** Returns the reason of a BadSetting for a path that cannot be opened because of `error`. */
    static String unopenable(const String& path, const String& error);
    /** Returns the BadSetting of an output that cannot be opened or shared. */
    static Control::BadSetting badOutput(const SettingValues& values, const String& reason);
    /** Throws `std::invalid_argument` with a list of the bad settings, unless `bad` is empty. */
    static void requireNone(const std::vector<Control::BadSetting>& bad);

    /**
     * Reads and strictly checks all values. Accesses no logger and no file.
     *
     * @param values    the values
     * @param settings  receives the settings
     * @return the bad settings, including unknown keys
     */
    static std::vector<Control::BadSetting> read(const SettingValues& values, LogSettings& settings);
    /** Returns the full key of a tag. */
    static String key(const String& tag);
};

}

#endif
