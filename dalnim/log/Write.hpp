#ifndef DALNIM_LOG_WRITE_HPP
#define DALNIM_LOG_WRITE_HPP

#include <dalnim/log/Log.hpp>
#include <dalnim/log/LogFile.hpp>
#include <dalnim/log/SeverityGate.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

namespace com::kor::dal::nim::log {

class ForkEntry;
class LoggerState;
struct LimitReport;
struct LineOutcome;
struct LogSettings;
class ModuleLimits;

/**
 * The logger: a severity threshold or mask, an output mask, a module registry and one LogFile.
 * With nothing configured it writes to standard error.
 *
 * Any thread may call any operation. A record is formatted and written on the thread of its statement.
 *
 * The setters of the default logger log each change at INFO, whatever the severity settings are; other
 * loggers change without a report. If that report fails, the exception reaches the caller after the setting
 * has changed. A rejected value changes nothing.
 *
 * On the default logger, each new output begins with the configuration of the log.
 */
class DALNIM_API Write : public Log
{
public:
    static constexpr const char CLASS_NAME[] = "Write";

    Write();
    /** Deletes the dynamic modules. No other thread may use the logger. */
    ~Write() override;

    // The record path.
    bool isSeveritySatisfied(Severity sev) const override;
    /**
     * Writes a record.
     * @throws sys::system_error unless getFallback(), if the output cannot be opened, or if it is standard
     * error and rejects the configuration
     * @throws std::bad_alloc if memory runs out
     */
    void log(const Module& mod, const Header& rec, bool force) override;
    bool is_open() const override;
    bool is_valid() const override;
    bool is_reserved() const override;
    /**
     * Returns the stream of the output, which is opened, and begun with the configuration, if it is new. The
     * logger's lock does not protect what the caller inserts.
     * @throws sys::system_error as log() does
     */
    std::ios* getStream() const override;

    /** Registers a module, unless one of the same name is registered. */
    virtual void registerModule(const Module& module);
    /** Removes a module. Must be called before a registered module is destroyed. */
    virtual void unregisterModule(const Module& module);

    // The settings, which are documented at Control.
    using Control::setSeverity;
    using Control::setSeverityMask;

    void setConfiguration(const io::Properties& opts) override;

    bool remoteControlAllowed() const override;
    bool allowRemoteControl(bool allow) override;

    const String getPath() const override;
    void setPath(const String& path) override;
    void setStream(const String& stream) override;
    /**
     * Directs the output to a stream of the caller's, without a report. Throws the exceptions of
     * LogFile::setStream().
     */
    void setStream(std::ios& stream) override;

    unsigned int getOutputMask() const override;
    void setOutputMask(unsigned int newMask) override;

    Severity getSeverity() const override;
    void setSeverity(Severity newSev) override;
    void getSeverityMask(SeverityColl& severities) const override;
    void getSeverityMask(StringColl& severities) const override;
    void setSeverityMask(Severity severityId, bool on) override;
    void setSeverityMask(const SeverityColl& severities, bool on) override;
    void setSeverityMask(const StringColl& severities, bool on) override;

    bool getLocaltime() const override;
    bool setLocaltime(bool on) override;

    void getModuleFilter(StringColl& modules) const override;
    void setModuleFilter(const String& module, bool on) override;

    std::size_t getMaxFileSize() const override;
    void setMaxFileSize(std::size_t size) override;
    std::size_t getMaxNumberOfFiles() const override;
    void setMaxNumberOfFiles(std::size_t number) override;

    void getModulesRegisteredDynamic(StringColl& modules) const override;
    void getModulesRegisteredStatic(StringColl& modules) const override;

protected:
    void log(const String& msg) override DALNIM_REQUIRES(stateSync);
    ModuleRegistration& moduleRegistrar() override;

private:
    friend class Control;
    friend class EvidenceLog;
    friend class Module;

    typedef mt::MutexHolder<mt::CriticalSection> StateHolder;

    /** A severity mask as the list of its severities. */
    struct SeverityMaskData
    {
        unsigned int count;
        Severity sevs[Severity_COUNT];
    };

    /** Logs a record of a subclass, which may override format() or log(const String&). */
    __attribute__((visibility("hidden"))) void logOverridden(const Module& mod, const Header& rec)
        DALNIM_EXCLUDES(stateSync);
    /**
     * Logs a record if neither format() nor log(const String&) is replaced: formats the line before it
     * acquires the lock, and again under it if its format has changed in between.
     */
    __attribute__((visibility("hidden"))) void formatAndLog(const Module& mod, const Header& rec)
        DALNIM_EXCLUDES(stateSync);

    /** Calls formatAndLog() for a process whose lines on standard error have a priority. */
    __attribute__((visibility("hidden"), cold, noinline)) void formatAndLogWithPriority(const Module& mod,
                                                                                        const Header& rec)
        DALNIM_EXCLUDES(stateSync);

    LogFileRef& getOwnedLogFile() DALNIM_REQUIRES(stateSync);
    /** Returns a new file with the settings that apply to all files of this logger. */
    LogFileRef newLogFile() const DALNIM_REQUIRES(stateSync);
    /** Makes `file` the output, and releases the current one. */
    void replaceLogFile(const LogFileRef& file, bool owned) DALNIM_REQUIRES(stateSync);
    /** Returns the file that setStream("CIMOM") shares, or throws like it. */
    LogFileRef cimomLogFile() const DALNIM_REQUIRES(stateSync);
    /** Has the reports of signal handlers be written to the output: see EvidenceLog. */
    __attribute__((visibility("hidden"))) void publishOutput() const DALNIM_EXCLUDES(stateSync);
    /** Returns the output, for a logger that shares it. */
    __attribute__((visibility("hidden"))) LogFileRef fileToShare() const;
    /** Writes the stream header if it is due. Returns false if that fails, and getFallback() is selected. */
    bool beginOutput() const DALNIM_REQUIRES(stateSync);
    /** Writes a line that ends in a newline, to standard error if need be and getFallback() is selected. */
    __attribute__((visibility("hidden"))) LineOutcome writeLine(std::string_view line)
        DALNIM_REQUIRES(stateSync);
    void streamHeader() const DALNIM_REQUIRES(stateSync);
    void revertStreamHeader(int error) const DALNIM_REQUIRES(stateSync);
    /** Writes a message and the configuration to the output. Returns false if the output rejects them. */
    bool writeHeader(const String& msg, Severity sev) const DALNIM_REQUIRES(stateSync);
    std::ostream& writeLogConfig(std::ostream& os) const DALNIM_REQUIRES(stateSync);

    // Called after a change.
    template <class Writer>
    void reportChange(unsigned int line, const char* setting, Writer writeOldAndNew)
        DALNIM_EXCLUDES(stateSync);
    template <class Value>
    void reportOldAndNew(unsigned int line, const char* setting, const Value& oldValue, const Value& newValue)
        DALNIM_EXCLUDES(stateSync);

    /** Sets a boolean setting, reports the change as `label`, and returns the old value. */
    bool changeSwitch(std::atomic<bool>& flag, bool value, unsigned int line, const char* label)
        DALNIM_EXCLUDES(stateSync);

    /** Applies all settings. Exceptions from opening the output propagate; then nothing has changed. */
    void applySettings(const LogSettings& settings) DALNIM_EXCLUDES(stateSync);
    /** Opens the output of `settings`, except "CIMOM", in a file that is not in use yet. */
    static void openOutput(LogFile& file, const LogSettings& settings);
    /** Returns true if the output is the one that `settings` select, and is open. */
    bool hasOutputOf(const LogSettings& settings) const DALNIM_REQUIRES(stateSync);
    /** Acquires stateSync, and returns hasOutputOf(). */
    bool isOutputOf(const LogSettings& settings) const DALNIM_EXCLUDES(stateSync);
    /**
     * Makes `opened`, a file of this logger's own, the output unless it is null. Sets the limits of
     * `settings`, unless the file is shared.
     */
    void replaceOutput(LogFileRef& opened, const LogSettings& settings) DALNIM_REQUIRES(stateSync);
    /** Opens the path of the output again. Returns null if the output is not a file of this logger's own. */
    LogFileRef openAgain() const DALNIM_EXCLUDES(stateSync);
    bool reopenFile() DALNIM_EXCLUDES(stateSync);

    /** Stores output mask and time format; the latter decides whether statements read fractions of seconds.
     */
    __attribute__((visibility("hidden"))) void setPrefixFormat(unsigned int mask, TimeFormat format) noexcept
        DALNIM_REQUIRES(stateSync);

    void configureOutput(const std::map<String, String>& values);

    bool isDefault() const;

    /** Returns the state that is not stored in this class, whose size users compile into their programs. */
    __attribute__((visibility("hidden"))) LoggerState& state() const noexcept;
    __attribute__((visibility("hidden"))) ModuleLimits& moduleLimits() const noexcept
        DALNIM_REQUIRES(stateSync);
    /**
     * Counts a record of a module with a limit, and writes the reports that are due. Returns false if the
     * record is held back.
     */
    __attribute__((visibility("hidden"))) bool isAdmitted(const Module& mod, Severity sev)
        DALNIM_EXCLUDES(stateSync);
    __attribute__((visibility("hidden"))) void reportLimit(const LimitReport& report)
        DALNIM_EXCLUDES(stateSync);

    static void getSeverityMask(SeverityMaskData& data, unsigned int mask);
    static std::ostream& writeOutputMask(std::ostream& os, unsigned int mask);
    static std::ostream& writeSeverityMask(std::ostream& os, unsigned int mask);
    static std::ostream& writeLogMessage(std::ostream& os, const String& msg, Severity sev);

    /** Acquired before LogFile's lock. Not recursive: a setter releases it before it reports the change. */
    mt::CriticalSection stateSync;
    // The atomic members are read without the lock, and written under it. Relaxed: each is a setting of its
    // own. `prefixFormat` is also released and acquired: see setPrefixFormat().
    std::atomic<bool> flagAllowRemoteControl;
    /** Whether the configuration has been written to the current output. */
    mutable bool streamHeaderDone DALNIM_GUARDED_BY(stateSync);
    std::atomic<bool> escapesControls;
    std::atomic<bool> fallsBack;
    /** The output mask and the time format, as a PrefixFormat. */
    std::atomic<unsigned int> prefixFormat;
    SeverityGate severity;
    /**
     * Never null. Mutable: a const logger writes to its file. Written under InitLock as well: a logger that
     * shares the file of another one reads that reference under InitLock alone, so that no thread holds the
     * locks of two loggers.
     */
    mutable LogFileRef logFile DALNIM_GUARDED_BY(stateSync);
    /** False while the file is that of another logger, which owns its settings. */
    bool ownedLogFile DALNIM_GUARDED_BY(stateSync);
    /** Permissions of the files that this logger owns; a shared file has those of its owner. */
    unsigned int fileMode DALNIM_GUARDED_BY(stateSync);
    std::unique_ptr<ModuleRegistration> modules DALNIM_PT_GUARDED_BY(stateSync);
    /** Number of statements in signal handlers that were rejected. Relaxed: a count. */
    std::atomic<std::uint64_t> refusedStatements{0};
    /** A LoggerState, which has fork() hold stateSync. Destroyed first. */
    std::unique_ptr<ForkEntry> forkEntry;
};

}

#endif
