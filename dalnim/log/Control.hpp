#ifndef DALNIM_LOG_CONTROL_HPP
#define DALNIM_LOG_CONTROL_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace com::kor::dal::nim::io {
class Properties;
}

namespace com::kor::dal::nim::log {

/** The interface through which a logger is configured. The operations' meaning is told at Write. */
class DALNIM_API Control
{
public:
    static constexpr const char CLASS_NAME[] = "Control";

    // The last part of the configuration keys, behind "com.kor.dal.nim.log.Control.".
    /** The directory of the log file. */
    static constexpr const char TAG_OUTPUT_DIRECTORY[] = "directory";
    /** The name of the log file, where the last `<date>` becomes the date in UTC; with a slash, its path. */
    static constexpr const char TAG_OUTPUT_FILE[] = "file";
    /** A stream of setStream(const String&); goes ahead of a file. */
    static constexpr const char TAG_OUTPUT_STREAM[] = "stream";
    /** The threshold, by the name of a severity. */
    static constexpr const char TAG_SEVERITY_ID[] = "severity.id";
    /** The severities of the mask, by name and separated by white space. */
    static constexpr const char TAG_SEVERITY_MASK[] = "severity.mask";
    /** The fields of a prefix, by name and separated by white space. */
    static constexpr const char TAG_OUTPUT_MASK[] = "output.mask";
    /** Entries for the module filter, separated by white space. */
    static constexpr const char TAG_MODULE_LIST[] = "modules";
    /** "true" in any case of letters declares remote control as allowed, all else as refused. */
    static constexpr const char TAG_ALLOW_REMOTE[] = "remote.enable";
    /** "true" in any case of letters is local time, all else UTC. */
    static constexpr const char TAG_RECORD_LOCAL_TIME[] = "localtime";
    /** The size of a file at which it is rotated, in bytes; 0 for none. */
    static constexpr const char TAG_MAX_FILE_SIZE[] = "maxFileSize";
    /** How many old files are kept; 0 for all. */
    static constexpr const char TAG_MAX_NUMBER_OF_FILES[] = "maxNumberOfFiles";
    /**
     * "true" in any case of letters lets statements fall back to standard error if the file cannot be opened,
     * all else lets them throw.
     */
    static constexpr const char TAG_FALLBACK[] = "fallback.enable";
    /** The permissions of new files in octal, such as 0640. */
    static constexpr const char TAG_FILE_MODE[] = "file.mode";
    /** "true" in any case of letters escapes control characters in records, all else writes them as they are.
     */
    static constexpr const char TAG_ESCAPE_CONTROLS[] = "escape.enable";

    /** The file mode that means no setting: new files have the permissions that the umask leaves. */
    static constexpr unsigned int MODE_OF_UMASK = ~0U;

    // Written directly, these are to be set before other threads start; setOutputMaskDefault() and
    // setSeverityDefault() may be called at any time.
    /** What a logger that is made from now on starts with; Mask_ALL at load. */
    static unsigned int DEFAULT_MASK;
    /** The threshold of a logger that is made from now on; NOTICE at load. */
    static Severity DEFAULT_SEVERITY;

    /** A list of severities. */
    typedef std::vector<Severity> SeverityColl;
    /** A list of names. */
    typedef std::vector<String> StringColl;

    /** A setting of a configuration that a logger does not accept. */
    struct BadSetting
    {
        /** The whole key. */
        String key;
        /** The value as the configuration has it. */
        String value;
        /** What is wrong with it, and what is allowed, such as "must be true or false". */
        String reason;
    };

    virtual ~Control() = 0;

    /**
     * Takes the settings of "com.kor.dal.nim.log.Control.*" in a table; a bad one raises what its setter
     * raises.
     */
    virtual void setConfiguration(const io::Properties& opts) = 0;
    /** What allowRemoteControl() has stored last; false at first. */
    virtual bool remoteControlAllowed() const = 0;
    /**
     * Declares whether remote administration is welcome, for whoever offers it; gives the old declaration.
     */
    virtual bool allowRemoteControl(bool allow) = 0;
    /** The path of the file that records go to; empty when they go elsewhere. */
    virtual const String getPath() const = 0;
    /** Sends records to a file, opened by the next one; to standard error with an empty path. */
    virtual void setPath(const String& path) = 0;
    /**
     * Sends records to a stream that goes by a name. Throws `std::out_of_range` for a name that means none.
     */
    virtual void setStream(const String& stream) = 0;
    /** The fields of a record's prefix: Mask values, combined. */
    virtual unsigned int getOutputMask() const = 0;
    /** Selects the fields of a record's prefix. Throws `std::out_of_range` for a bit that means none. */
    virtual void setOutputMask(unsigned int newMask) = 0;
    /** The threshold, or the lowest severity of the mask that is in force in its place. */
    virtual Severity getSeverity() const = 0;
    /** Makes this the threshold, and ends a mask. Throws `std::out_of_range`, "Illegal Severity". */
    virtual void setSeverity(Severity newSev) = 0;
    /** Replaces the list by the severities of the mask; by NONE alone while no mask is in force. */
    virtual void getSeverityMask(SeverityColl& severities) const = 0;
    /** The same, by name. */
    virtual void getSeverityMask(StringColl& severities) const = 0;
    /** Adds a severity to the mask, or takes it out. Throws `std::out_of_range`, "Illegal Severity". */
    virtual void setSeverityMask(Severity severityId, bool on) = 0;
    /** Adds several severities to the mask, or, with `on` false, keeps none but these. */
    virtual void setSeverityMask(const SeverityColl& severities, bool on) = 0;
    /** The same by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    virtual void setSeverityMask(const StringColl& severities, bool on) = 0;
    /** Whether records carry local time rather than UTC. */
    virtual bool getLocaltime() const = 0;
    /** Selects local time or UTC; gives the old setting. */
    virtual bool setLocaltime(bool on) = 0;
    /**
     * Replaces the list by the entries of the module filter, in their order; none when no filter is in force.
     */
    virtual void getModuleFilter(StringColl& modules) const = 0;
    /**
     * Adds an entry to the module filter: a name, or its beginning and "*"; or removes the first that
     * matches.
     */
    virtual void setModuleFilter(const String& module, bool on) = 0;
    /** 0 for a logger that knows no limit. */
    virtual std::size_t getMaxFileSize() const;
    /** Ignored by a logger that knows no limit. */
    virtual void setMaxFileSize(std::size_t size);
    /** 0 for a logger that knows no limit. */
    virtual std::size_t getMaxNumberOfFiles() const;
    /** Ignored by a logger that knows no limit. */
    virtual void setMaxNumberOfFiles(std::size_t number);
    /** Replaces the list by the names of the modules that are registered. */
    virtual void getModulesRegisteredDynamic(StringColl& modules) const = 0;
    /** The same list. */
    virtual void getModulesRegisteredStatic(StringColl& modules) const = 0;

    /** setSeverity() by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    void setSeverity(const String& name);
    /** setSeverityMask() by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    void setSeverityMask(const String& name, bool enable);

    /**
     * Checks the settings of "com.kor.dal.nim.log.Control.*" in a table as reconfigure() does, for a process
     * in this working directory. Changes nothing, and creates no file. Returns the bad ones in the order of
     * their keys; none if all are good. Whether a stream "CIMOM" is available is not checked.
     */
    static std::vector<BadSetting> checkConfiguration(const io::Properties& opts);
    /**
     * Replaces all settings by those of "com.kor.dal.nim.log.Control.*" in a table, or none of them. A
     * setting that the table does not have, or that is empty, goes back to its default: the output to
     * standard error, the threshold and the fields to getSeverityDefault() and getOutputMaskDefault(). The
     * values are those of setConfiguration(), but strict: what that ignores or takes in part, such as "10 MB"
     * as 10 bytes, is bad, as are keys that do not exist and files that cannot be opened. maxFileSize may end
     * in a unit: k, M, G, KiB, MiB or GiB.
     *
     * No record is written between the first change and the last. A file that is open already stays open;
     * another one is opened before anything changes. The changes are reported in the log of the default
     * logger by one record at INFO, whatever the severity settings are; a failure of that report reaches the
     * caller after the changes.
     *
     * Throws `std::invalid_argument`, "Bad log configuration: ...", with each bad key, its value (escaped as
     * by setEscapeControls()) and what is allowed, and `std::bad_cast` if this logger is not a Write. Then
     * nothing has changed.
     */
    void reconfigure(const io::Properties& opts);
    /**
     * Opens the file of the log again by its path, for a file that was renamed from outside. Each record is
     * written either to the old file or to the new one. On the default logger the new one begins with the
     * configuration. Returns false, and does nothing, if the output is not a file of this logger's own.
     * Throws sys::system_error if the file cannot be opened, and `std::bad_cast` if this logger is not a
     * Write: the old file is still in use then.
     */
    bool reopen();

    // Settings of a Write. On any other logger the setters throw `std::bad_cast`, and the getters return what
    // is in effect without a setting.

    /** Whether records are written with their control characters escaped; false at first. */
    bool getEscapeControls() const;
    /**
     * Selects whether control characters in the text of records, which includes that of exceptions, and in
     * names of modules are escaped: bytes 0 to 31 but tab, and 127, are written as `\a \b \f \n \r \v` where
     * C has such a name, otherwise as `\xNN` with two lower-case digits, and a backslash as `\\`. Each record
     * is one line then, and cannot be mistaken for two. Returns the old setting.
     */
    bool setEscapeControls(bool on);

    /** The permissions of new log files; MODE_OF_UMASK at first. */
    unsigned int getFileMode() const;
    /**
     * Sets the permissions of log files that are created from now on, whatever the umask is: 0640, for
     * example, or MODE_OF_UMASK. Existing files keep theirs. Throws `std::out_of_range`, "Illegal File Mode",
     * for a mode above 0777 or one that does not let the owner write.
     */
    void setFileMode(unsigned int mode);

    /** Whether statements fall back to standard error if the file cannot be opened; false at first. */
    bool getFallback() const;
    /**
     * Selects what a statement does if the file of the log cannot be opened: with false it throws; with true
     * it writes its record to standard error after an error message, as if the file had rejected the record.
     * Returns the old setting.
     */
    bool setFallback(bool on);

    /**
     * Returns how many log statements were refused because they were made in a signal handler that had
     * interrupted another log statement of its thread. 0 for a logger that is no Write. Any thread may call
     * this, also in a signal handler.
     */
    std::uint64_t getRefusedStatements() const noexcept;

    // The defaults are guarded by the library's InitLock.
    /** What a logger that is made from now on starts with as its output mask. */
    static unsigned int getOutputMaskDefault();
    /** What a logger that is made from now on starts with as its threshold. */
    static Severity getSeverityDefault();
    /** Throws `std::out_of_range`, "Illegal Mask", above 512: most combined masks are refused here. */
    static void setOutputMaskDefault(unsigned int mask);
    /** Throws `std::out_of_range`, "Illegal Severity". */
    static void setSeverityDefault(Severity severity);

    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

protected:
    Control() noexcept;
};

}

#endif
