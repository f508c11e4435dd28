#ifndef DALNIM_LOG_WRITE_HPP
#define DALNIM_LOG_WRITE_HPP

#include <dalnim/log/Log.hpp>
#include <dalnim/log/LogFile.hpp>
#include <dalnim/log/SeverityGate.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

namespace com::kor::dal::nim::log {

class ForkEntry;
struct LogSettings;

/**
 * The logger: a severity threshold or mask, an output mask, a module registry and one LogFile.
 * With nothing configured it writes to standard error.
 *
 * Any thread may call any operation; a record runs entirely on the thread of its statement. Every
 * setter that changes something reports it in the log of the default logger, at INFO, whatever the
 * severity settings are; other loggers change silently. A failure of that report reaches the caller
 * after the setting has changed. What is refused changes nothing.
 *
 * On the default logger each new output begins with the log's configuration.
 */
class DALNIM_API Write : public Log
{
public:
    static constexpr const char CLASS_NAME[] = "Write";

    Write();
    /** Deletes the dynamic modules. No other thread may use the logger any more. */
    ~Write() override;

    // The record path.
    bool isSeveritySatisfied(Severity sev) const override;
    /**
     * Writes a record. An output that cannot be opened, or, on standard error, fails for the
     * configuration block, raises sys::system_error out of the statement, unless getFallback().
     */
    void log(const Module& mod, const Header& rec, bool force) override;
    bool is_open() const override;
    bool is_valid() const override;
    bool is_reserved() const override;
    /** The stream, opened and begun if it is new. Writing to it is outside the logger's protection. */
    std::ios* getStream() const override;

    /** Adds a module, unless its name is taken. */
    virtual void registerModule(const Module& module);
    /** Forgets a module; call it before a registered module is destroyed. */
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
    void log(const String& msg) override;
    ModuleRegistration& moduleRegistrar() override;

private:
    friend class Control;
    friend class Module;

    typedef mt::MutexHolder<mt::CriticalSection> StateHolder;

    /** A severity mask as the list of its severities. */
    struct SeverityMaskData
    {
        unsigned int count;
        Severity sevs[Severity_COUNT];
    };

    /**
     * Logs a record if neither format() nor log(const String&) is replaced: formats the line before it
     * acquires the lock, and again under it if the output mask has changed in between.
     */
    void formatAndLog(const Module& mod, const Header& rec);

    // Called with stateSync held.
    LogFileRef& getOwnedLogFile();
    /** Returns a new file with this logger's settings that are not the caller's to choose. */
    LogFileRef newLogFile() const;
    /** Makes `file` the output; releases the present one. */
    void replaceLogFile(const LogFileRef& file, bool owned);
    /** Returns the file of the logger that offers itself as "CIMOM", or throws as setStream() does. */
    LogFileRef cimomLogFile() const;
    /** Writes the stream header if it is due. Returns false if that fails, and getFallback() is selected. */
    bool beginOutput() const;
    /** Writes a line that ends in a newline, to standard error if need be and getFallback() is selected. */
    void writeLine(std::string_view line);
    void streamHeader() const;
    void revertStreamHeader(int error) const;
    /** Begins the output with a message and the configuration; false when it refuses them. */
    bool writeHeader(const String& msg, Severity sev) const;
    std::ostream& writeLogConfig(std::ostream& os) const;

    // Called without it, behind the change that they report.
    template <class Writer>
    void reportChange(unsigned int line, const char* setting, Writer writeOldAndNew);
    template <class Value>
    void reportOldAndNew(unsigned int line, const char* setting, const Value& oldValue,
                         const Value& newValue);

    /** Changes a setting that is true or false, and reports that as `label`; returns the old value. */
    bool changeSwitch(std::atomic<bool>& flag, bool value, unsigned int line, const char* label);

    /** Puts all of `settings` in effect. Throws what opening the output throws; then nothing has changed. */
    void applySettings(const LogSettings& settings);
    /** Opens the output of `settings`, except "CIMOM", in a file that is not in use yet. */
    static void openOutput(LogFile& file, const LogSettings& settings);
    /** Whether the output is the one that `settings` select, open; called with stateSync held. */
    bool hasOutputOf(const LogSettings& settings) const;
    /** hasOutputOf() without stateSync held. */
    bool isOutputOf(const LogSettings& settings) const;
    /**
     * Makes `opened`, which is this logger's own, the output, and sets the limits of `settings`, unless the
     * file is shared. Null keeps the output. Called with stateSync held.
     */
    void replaceOutput(LogFileRef& opened, const LogSettings& settings);
    /** Opens a file like the present one; null if the output is not a file of this logger's own. */
    LogFileRef openAgain() const;
    bool reopenFile();

    void configureOutput(const std::map<String, String>& values);

    bool isDefault() const;

    static void getSeverityMask(SeverityMaskData& data, unsigned int mask);
    static std::ostream& writeOutputMask(std::ostream& os, unsigned int mask);
    static std::ostream& writeSeverityMask(std::ostream& os, unsigned int mask);
    static std::ostream& writeLogMessage(std::ostream& os, const String& msg, Severity sev);

    /**
     * Guards all of the state. It is taken before LogFile's lock. It is not recursive: a setter
     * gives it up before it reports.
     */
    mt::CriticalSection stateSync;
    // Read without the lock by their getters, written under it.
    std::atomic<bool> flagAllowRemoteControl;
    /** Whether the present output has begun with the configuration. */
    mutable bool streamHeaderDone;
    std::atomic<bool> escapesControls;
    std::atomic<bool> fallsBack;
    std::atomic<unsigned int> outputMask;
    SeverityGate severity;
    /**
     * Never null. Mutable, since its const holder writes to it all the same. Changes under InitLock as well:
     * another logger that is to share the file reads this reference under InitLock alone, so that no thread
     * holds the locks of two loggers.
     */
    mutable LogFileRef logFile;
    /** False while the file is shared with another logger, who owns its settings. */
    bool ownedLogFile;
    /** Of each file that this logger owns; a shared one has the mode of its owner. */
    unsigned int fileMode;
    std::unique_ptr<ModuleRegistration> modules;
    /** Statements in signal handlers that were refused. */
    std::atomic<std::uint64_t> refusedStatements{0};
    /** Has fork() hold stateSync. Destroyed first. */
    std::unique_ptr<ForkEntry> forkEntry;
};

}

#endif
