#ifndef DALNIM_LOG_CONTROL_HPP
#define DALNIM_LOG_CONTROL_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <dalnim/log/Statistics.hpp>
#include <dalnim/log/TimeFormat.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace com::kor::dal::nim::io {
class Properties;
}

namespace com::kor::dal::nim::log {

/**
 * The interface through which a logger is configured. The settings are documented here, as Write implements
 * them.
 *
 * Any thread may call any operation. A setter that rejects its argument changes nothing. On the default
 * logger, each setter that changes something logs a report at INFO, whatever the severity settings are; other
 * loggers change without a report. If the report cannot be logged, the setter throws, and the new value is in
 * effect.
 */
class DALNIM_API Control
{
public:
    static constexpr const char CLASS_NAME[] = "Control";

    // The last part of each configuration key, which follows "com.kor.dal.nim.log.Control.".
    /** Directory of the log file; setPath(). */
    static constexpr const char TAG_OUTPUT_DIRECTORY[] = "directory";
    /** Name of the log file, whose last `<date>` is replaced by the date in UTC. With a slash: its path. */
    static constexpr const char TAG_OUTPUT_FILE[] = "file";
    /** Name of a stream; setStream(const String&). Takes precedence over a file. */
    static constexpr const char TAG_OUTPUT_STREAM[] = "stream";
    /** Threshold, as the name of a severity; setSeverity(). */
    static constexpr const char TAG_SEVERITY_ID[] = "severity.id";
    /** Severities of the mask, as names separated by white space. Takes precedence over a threshold. */
    static constexpr const char TAG_SEVERITY_MASK[] = "severity.mask";
    /** Fields of a prefix, as names separated by white space; setOutputMask(). */
    static constexpr const char TAG_OUTPUT_MASK[] = "output.mask";
    /** Entries of the module filter, separated by white space; setModuleFilter(). */
    static constexpr const char TAG_MODULE_LIST[] = "modules";
    /** Limits of modules, as "name=records/burst/severity" separated by white space; setModuleLimits(). */
    static constexpr const char TAG_MODULE_LIMITS[] = "modules.limits";
    /** Whether remote control is allowed: "true" (ignoring case), or else false; allowRemoteControl(). */
    static constexpr const char TAG_ALLOW_REMOTE[] = "remote.enable";
    /** Whether records carry local time: "true" (ignoring case), or else UTC; setLocaltime(). */
    static constexpr const char TAG_RECORD_LOCAL_TIME[] = "localtime";
    /** Form of the date and time in records, as the name of a TimeFormat; setTimeFormat(). */
    static constexpr const char TAG_TIME_FORMAT[] = "timeFormat";
    /** Size of the log file, in bytes, at which it is rotated; setMaxFileSize(). */
    static constexpr const char TAG_MAX_FILE_SIZE[] = "maxFileSize";
    /** Maximum number of rotated files; setMaxNumberOfFiles(). */
    static constexpr const char TAG_MAX_NUMBER_OF_FILES[] = "maxNumberOfFiles";
    /** Whether statements fall back to standard error: "true" (ignoring case), or else they throw. */
    static constexpr const char TAG_FALLBACK[] = "fallback.enable";
    /** Permissions of new log files, in octal, such as 0640; setFileMode(). */
    static constexpr const char TAG_FILE_MODE[] = "file.mode";
    /** Whether control characters are escaped: "true" (ignoring case), or else false; setEscapeControls(). */
    static constexpr const char TAG_ESCAPE_CONTROLS[] = "escape.enable";
    /** Whether lines on standard error have a priority: "true" (ignoring case), or else false. */
    static constexpr const char TAG_PRIORITY_PREFIX[] = "priorityPrefix";

    /** The file mode without a setting: new files have the permissions that the umask leaves. */
    static constexpr unsigned int MODE_OF_UMASK = ~0U;

    // May be written directly only before other threads start. setOutputMaskDefault() and
    // setSeverityDefault() may be called at any time.
    /** Output mask of new loggers; Mask_ALL when the library is loaded. */
    static unsigned int DEFAULT_MASK DALNIM_GUARDED_BY(sys::internal::initMutex);
    /** Threshold of new loggers; NOTICE when the library is loaded. */
    static Severity DEFAULT_SEVERITY DALNIM_GUARDED_BY(sys::internal::initMutex);

    /** A list of severities. */
    typedef std::vector<Severity> SeverityColl;
    /** A list of names. */
    typedef std::vector<String> StringColl;

    /** A limit on the records of modules; setModuleLimits(). */
    struct ModuleLimit
    {
        /** Greatest number of `recordsPerSecond` and of `burst`. */
        static constexpr std::uint32_t MAX_NUMBER = 1000000;

        /** The modules: a name or the beginning of names followed by "*", as in the module filter. */
        String modules;
        /** Records of each of these modules that pass in a second, in the long run; 1 to MAX_NUMBER. */
        std::uint32_t recordsPerSecond = 1;
        /** Records that pass in a row after a time without records; 1 to MAX_NUMBER. */
        std::uint32_t burst = 1;
        /** Highest severity that is limited. Records of the severities above it always pass. */
        Severity highest = Severity_WARNING;
    };
    /** A list of limits. */
    typedef std::vector<ModuleLimit> ModuleLimitColl;

    /** A setting in a configuration that a logger does not accept. */
    struct BadSetting
    {
        /** The full key. */
        String key;
        /** The value in the configuration. */
        String value;
        /** What is wrong with the value, and which values are allowed, such as "must be true or false". */
        String reason;
    };

    virtual ~Control() = 0;

    /**
     * Applies the settings "com.kor.dal.nim.log.Control.*" of a table by their setters, one after the other:
     * other threads see the steps. A setting whose key is absent or has an empty value does not change; but
     * without any output setting the output is standard error. Unknown keys are ignored. See reconfigure()
     * for a strict form.
     *
     * @param opts  the table
     * @throws std::exception  any exception of the setters. The settings before the bad one are in effect.
     */
    virtual void setConfiguration(const io::Properties& opts) = 0;
    /** Returns the value that allowRemoteControl() stored last; false initially. */
    virtual bool remoteControlAllowed() const = 0;
    /**
     * Declares whether remote administration may change the settings. The library stores this for a component
     * that offers remote administration, and does not use it.
     *
     * @param allow  the new declaration
     * @return the previous declaration
     */
    virtual bool allowRemoteControl(bool allow) = 0;
    /** Returns the path of the log file; empty if the output is a stream. */
    virtual const String getPath() const = 0;
    /**
     * Directs the output to a file, which the next record opens. Has no effect if the path is the current
     * one; see reopen().
     *
     * @param path  the path of the file. If it is empty, the output is standard error.
     */
    virtual void setPath(const String& path) = 0;
    /**
     * Directs the output to a standard stream, or to the log file of another logger.
     *
     * @param stream  "STDERR", "STDOUT" or "STDLOG"; or "CIMOM" to share the file of the logger to which the
     * registered module "com_kor_dal_nim_log_module_CIMOM" belongs. The file settings of this logger do not
     * apply to a shared file.
     * @throws std::out_of_range  "Illegal output stream name"
     * @throws std::invalid_argument  "CIMOM stream is not available"
     */
    virtual void setStream(const String& stream) = 0;
    /** Returns the fields of a record's prefix, as a combination of Mask values. */
    virtual unsigned int getOutputMask() const = 0;
    /**
     * Selects the fields of a record's prefix.
     *
     * @param newMask  a combination of Mask values
     * @throws std::out_of_range  "Illegal Output Mask" if `newMask` exceeds Mask_ALL (1023)
     */
    virtual void setOutputMask(unsigned int newMask) = 0;
    /** Returns the threshold, or the lowest severity of the severity mask if there is one. */
    virtual Severity getSeverity() const = 0;
    /**
     * Sets the threshold, and removes the severity mask.
     *
     * @param newSev  the lowest severity whose records pass; NONE lets all pass
     * @throws std::out_of_range  "Illegal Severity"
     */
    virtual void setSeverity(Severity newSev) = 0;
    /** Replaces the contents of the list by the severities of the mask, or by NONE if there is no mask. */
    virtual void getSeverityMask(SeverityColl& severities) const = 0;
    /**
     * Replaces the contents of the list by the names of the severities of the mask, or by NONE if there is no
     * mask.
     */
    virtual void getSeverityMask(StringColl& severities) const = 0;
    /**
     * Adds a severity to the severity mask, or removes it. While there is a mask, exactly its severities
     * pass, and the threshold does not apply. If the last severity is removed from a mask, all records pass.
     * Removing NONE removes the mask and restores the default threshold; adding NONE does not change a mask.
     *
     * @param severityId  the severity
     * @param on          true to add it, false to remove it
     * @throws std::out_of_range  "Illegal Severity"
     */
    virtual void setSeverityMask(Severity severityId, bool on) = 0;
    /**
     * Adds several severities to the severity mask, or removes all others from it. A list of one severity has
     * the effect of setSeverityMask(Severity, bool), which removes this one instead; an empty list has no
     * effect.
     *
     * @param severities  the severities
     * @param on          true to add them, false to remove all others
     * @throws std::out_of_range  "Illegal Severity"
     */
    virtual void setSeverityMask(const SeverityColl& severities, bool on) = 0;
    /**
     * Like the overload for severities, by name.
     *
     * @param severities  the names
     * @param on          true to add them, false to remove all others
     * @throws std::out_of_range  "Unrecognized NIM Log Severity"
     */
    virtual void setSeverityMask(const StringColl& severities, bool on) = 0;
    /** Returns true if records carry local time, false if they carry UTC. */
    virtual bool getLocaltime() const = 0;
    /**
     * Selects local time or UTC, for all loggers of the process.
     *
     * @param on  true for local time
     * @return the previous setting
     */
    virtual bool setLocaltime(bool on) = 0;
    /**
     * Replaces the contents of the list by the entries of the module filter, in order; none if there is no
     * filter.
     */
    virtual void getModuleFilter(StringColl& modules) const = 0;
    /**
     * Changes the module filter, which selects the modules whose records pass up to WARNING. Without entries
     * all modules pass. A report is logged even if nothing changes.
     *
     * @param module  with `on`: the entry to add, a name or the beginning of names followed by "*"; an empty
     * one is not added. Without `on`: the first entry that matches this name is removed; an empty one removes
     * all.
     * @param on      true to add an entry, false to remove one
     */
    virtual void setModuleFilter(const String& module, bool on) = 0;
    /**
     * Returns the size at which the log file is rotated, in bytes; 0 without a limit, or if the logger has no
     * files.
     */
    virtual std::size_t getMaxFileSize() const;
    /**
     * Sets the size at which the log file is rotated: renamed to its path followed by ".0", and replaced by a
     * new file. The size is checked after each record, so a file may exceed it by one record. Has no effect
     * on a shared file, or if the logger has no files.
     *
     * @param size  in bytes; 0 for no limit
     */
    virtual void setMaxFileSize(std::size_t size);
    /** Returns the maximum number of rotated files; 0 without a limit, or if the logger has no files. */
    virtual std::size_t getMaxNumberOfFiles() const;
    /**
     * Sets the maximum number of rotated files, and immediately deletes any excess files. Has no effect on a
     * shared file, or if the logger has no files.
     *
     * @param number  0 for no limit
     */
    virtual void setMaxNumberOfFiles(std::size_t number);
    /**
     * Replaces the contents of the list by the names of all registered modules, in the order of registration.
     */
    virtual void getModulesRegisteredDynamic(StringColl& modules) const = 0;
    /** Does the same as getModulesRegisteredDynamic(). */
    virtual void getModulesRegisteredStatic(StringColl& modules) const = 0;

    /** Like setSeverity(Severity), by name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
    void setSeverity(const String& name);
    /**
     * Like setSeverityMask(Severity, bool), by name. Throws `std::out_of_range`, "Unrecognized NIM Log
     * Severity".
     */
    void setSeverityMask(const String& name, bool enable);

    /**
     * Checks the settings "com.kor.dal.nim.log.Control.*" of a table as reconfigure() does, for a process in
     * the current working directory. Changes nothing and creates no file. Does not check whether the stream
     * "CIMOM" is available.
     *
     * @param opts  the table
     * @return the bad settings, in the order of their keys
     */
    static std::vector<BadSetting> checkConfiguration(const io::Properties& opts);
    /**
     * Replaces all settings by the settings "com.kor.dal.nim.log.Control.*" of a table, or changes nothing.
     *
     * A setting whose key is absent or has an empty value returns to its default: the output to standard
     * error, the threshold and the fields to getSeverityDefault() and getOutputMaskDefault(). Values are
     * those of setConfiguration(), but checked strictly: a value that setConfiguration() ignores or reads in
     * part ("10 MB" as 10 bytes) is bad, as are unknown keys and files that cannot be opened. maxFileSize may
     * end in a unit: k, M, G, KiB, MiB or GiB.
     *
     * No record is written between the first change and the last. If the file is already open, it stays open;
     * a different file is opened before anything changes. The default logger reports all changes by one
     * record.
     *
     * @param opts  the table
     * @throws std::invalid_argument  "Bad log configuration: ...", with each bad key, its value (escaped as
     * by setEscapeControls()) and the values that are allowed. Nothing has changed.
     * @throws std::bad_cast  if this logger is not a Write. Nothing has changed.
     */
    void reconfigure(const io::Properties& opts);
    /**
     * Opens the log file again by its path, for a file that another program has renamed. Each record is
     * written either to the old file or to the new one. On the default logger the new file begins with a
     * stream header.
     *
     * @return false if the output is not a file of this logger's own. Nothing has changed.
     * @throws sys::system_error  if the file cannot be opened. The old file remains in use.
     * @throws std::bad_cast  if this logger is not a Write
     */
    bool reopen();

    // Settings of a Write. For any other logger the setters throw `std::bad_cast`, and the getters return the
    // value that applies without a setting.

    /** Returns true if control characters in records are escaped; false initially. */
    bool getEscapeControls() const;
    /**
     * Selects whether control characters are escaped in the text of records, including that of exceptions,
     * and in the names of modules. Bytes 0 to 31 except tab, and 127, are written as `\a \b \f \n \r \v` if C
     * has such a name, otherwise as `\xNN` with two lower-case digits; a backslash is written as `\\`. Each
     * record is then a single line and cannot be mistaken for two.
     *
     * @param on  true to escape them
     * @return the previous setting
     */
    bool setEscapeControls(bool on);

    /** Returns the form of the date and time in records; TimeFormat_LOCAL initially. */
    TimeFormat getTimeFormat() const;
    /**
     * Selects the form of the date and time in records. It is the time of the statement, second and fraction
     * from one reading of the clock, which is truncated and not rounded. While no logger of the process needs
     * the fraction, it is not read: a record whose statement began before that has the fraction 0. The
     * stream header always has the form TimeFormat_LOCAL.
     *
     * @param format  the form
     * @throws std::out_of_range  "Illegal Time Format"
     */
    void setTimeFormat(TimeFormat format);
    /** Like the overload for forms, by name. Throws `std::out_of_range`, "Unrecognized NIM Log Time Format".
     */
    void setTimeFormat(const String& name);

    /** Returns the permissions of new log files; MODE_OF_UMASK initially. */
    unsigned int getFileMode() const;
    /**
     * Sets the permissions of log files that are created afterwards, regardless of the umask. Existing files
     * are not changed.
     *
     * @param mode  0640, for example, or MODE_OF_UMASK
     * @throws std::out_of_range  "Illegal File Mode" if `mode` exceeds 0777 or does not let the owner write
     */
    void setFileMode(unsigned int mode);

    /**
     * Returns true if statements fall back to standard error if the log file cannot be opened; false
     * initially.
     */
    bool getFallback() const;
    /**
     * Selects what a statement does if the log file cannot be opened.
     *
     * @param on  true to write the record to standard error after an error message, as if the file had
     * rejected the record; false to throw
     * @return the previous setting
     */
    bool setFallback(bool on);

    /** Returns true if lines on standard error begin with their priority; false initially. */
    bool getPriorityPrefix() const noexcept;
    /**
     * Selects whether each line that the log writes to standard error begins with its priority, for a service
     * manager that passes these lines to a system log: "<2>" for FATAL, "<3>" for ERROR, "<4>" for WARNING,
     * "<5>" for NOTICE, "<6>" for INFO, and "<7>" for all others, as documented in sd-daemon(3). Applies to
     * all loggers of the process, to every line of a record or a stream header, to records that their own
     * output has rejected, and to the log's own diagnostics; never to files, standard output and other
     * streams.
     *
     * Standard error means the streams std::cerr and std::clog, whatever their buffers are. If memory runs
     * out for the prefixes of a long record, it is written without them.
     *
     * @param on  true to write the priority
     * @return the previous setting
     */
    bool setPriorityPrefix(bool on);

    /** Returns the limits of modules, in order; none initially. */
    ModuleLimitColl getModuleLimits() const;
    /**
     * Replaces the limits of modules, which keep one module from filling the disk. For each module the first
     * limit that matches its name applies, separately from other modules.
     *
     * The first record that is held back is replaced by a record of the logger, at WARNING whatever the
     * severity settings are: `The module "shop" exceeds 10 records per second: further ones are held back`.
     * When no record of the module has been held back for 10 seconds, the next record that the logger writes
     * follows another one: `The module "shop" is within its limit again: 1234 records were held back`. The
     * same record is written if the limits change before that. A statement whose record is held back has
     * evaluated its operands.
     *
     * @param limits  the limits; empty for none. Modules whose limit stays the same continue counting if the
     * lists are equal.
     * @throws std::out_of_range  "Illegal Module Limit" if a name is empty or contains white space, or if a
     * number or severity is out of range
     */
    void setModuleLimits(const ModuleLimitColl& limits);

    /**
     * Returns the number of log statements that were rejected because they ran in a signal handler that had
     * interrupted another log statement of the same thread; 0 for a logger that is not a Write. May be called
     * in a signal handler.
     */
    std::uint64_t getRefusedStatements() const noexcept;

    /**
     * Returns the numbers of the records that this logger has written and could not write since
     * Statistics::enable(); all 0 before, and for a logger that is not a Write. Acquires no lock: the numbers
     * of a record that is being written may be incomplete. May be called in a signal handler.
     */
    Statistics getStatistics() const noexcept;

    /** Returns the output mask of new loggers. */
    static unsigned int getOutputMaskDefault();
    /** Returns the threshold of new loggers. */
    static Severity getSeverityDefault();
    /**
     * Sets the output mask of new loggers.
     *
     * @param mask  at most 512: most combinations of fields are rejected
     * @throws std::out_of_range  "Illegal Mask"
     */
    static void setOutputMaskDefault(unsigned int mask);
    /**
     * Sets the threshold of new loggers.
     *
     * @param severity  the threshold
     * @throws std::out_of_range  "Illegal Severity"
     */
    static void setSeverityDefault(Severity severity);

    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

protected:
    Control() noexcept;
};

}

#endif
