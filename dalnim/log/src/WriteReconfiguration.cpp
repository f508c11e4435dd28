#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <qv/pmx/src/CancellationOff.hpp>
#include <dalnim/log/src/LoggerState.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/log/src/RecordPriority.hpp>
#include <dalnim/log/src/SettingsTable.hpp>
#include <dalnim/log/src/SettingsText.hpp>
#include <dalnim/log/src/StreamHeader.hpp>
#include <dalnim/log/src/StreamOutput.hpp>
#include <dalnim/sys/SysError.hpp>

#include <exception>
#include <utility>

namespace com::kor::dal::nim::log {

namespace {

/**
 * Number of times that a file is opened because it is no longer the file at its path. Limited, since some
 * file systems report another inode number at each call.
 */
constexpr int MOST_ATTEMPTS = 20;

/** The changes of one reconfiguration, for its report. */
class Changes
{
public:
    /** Adds a setting if its values differ. */
    void add(const char* setting, const String& oldValue, const String& newValue)
    {
        if (oldValue != newValue) {
            settings += ' ';
            settings += setting;
            text += String("\n") + RECONFIGURATION_SETTING + setting + '\n' + RECONFIGURATION_OLD_VALUE
                    + oldValue + '\n' + RECONFIGURATION_NEW_VALUE + newValue;
        }
    }
    bool empty() const noexcept
    {
        return settings.empty();
    }
    void write(std::ostream& os) const
    {
        os << RECONFIGURATION_TITLE << settings << text;
    }

private:
    String settings;
    String text;
};

String filterText(const std::list<String>& filter)
{
    String text;
    for (const String& entry : filter) {
        text += (text.empty() ? "" : " ") + entry;
    }
    return filter.empty() ? "*" : text;
}

template <class Insert>
String textOf(Insert insert)
{
    // Not an ostringstream: see SpareHeaders.
    Statement statement(INTERNAL_LOG_MODULE, Severity_INFO);
    Header& text = statement.header("", 0);
    text.exceptions(std::ios_base::badbit);
    insert(text.os());
    return text.str();
}

}

void Write::openOutput(LogFile& file, const LogSettings& settings)
{
    if (settings.stream != nullptr) {
        file.setStream(*settings.stream);
        return;
    }
    try {
        file.openAt(settings.path);
    } catch (const sys::system_error& exc) {
        throw SettingsTable::OutputFailure(SettingsTable::unopenable(settings.path, exc.what()));
    }
}

bool Write::hasOutputOf(const LogSettings& settings) const
{
    if (settings.stream != nullptr) {
        return ownedLogFile && logFile->isSetTo(*settings.stream);
    }
    return ownedLogFile && logFile->isOpenAt(settings.path);
}

bool Write::isOutputOf(const LogSettings& settings) const
{
    const StateHolder holder(stateSync.acquire());
    return hasOutputOf(settings);
}

void Write::replaceOutput(LogFileRef& opened, const LogSettings& settings)
{
    const LogFile::Limits limits = {settings.fileMode, settings.maxFileSize, settings.maxNumberOfFiles};
    if (ownedLogFile) {
        // In the same object, which another logger may share.
        logFile->replaceOutput(opened.get(), limits);
    } else if (opened.get() != nullptr) {
        opened->replaceOutput(nullptr, limits);
        replaceLogFile(opened, true);
    }
}

void Write::applySettings(const LogSettings& settings)
{
    if (settings.isStreamNamed) {
        StreamOutput::recheckDescriptor(*settings.stream);
    }
    const bool isShared = settings.stream == nullptr && settings.path.empty();
    LogFileRef opened;
    Changes changes;
    ModuleLimits::Limits limits = settings.moduleLimits;
    ModuleLimits::Buckets endedLimits;
    StateHolder holder(stateSync.acquire());
    // A rotation or another program may have renamed the file since it was opened.
    for (int attempt = 0; !isShared && attempt < MOST_ATTEMPTS
                          && (opened.get() == nullptr ? !hasOutputOf(settings) : !opened->isAtItsPath());
         ++attempt) {
        LogFileRef file = newLogFile();
        holder.release(true);
        // Opening may block: for a pipe without a reader, indefinitely.
        file->setFileMode(settings.fileMode);
        openOutput(*file, settings);
        opened = file;
        holder.reset(stateSync.acquire());
    }
    if (isShared) {
        try {
            opened = cimomLogFile();
        } catch (const std::invalid_argument& exc) {
            throw SettingsTable::OutputFailure(String("must be available, but ") + exc.what());
        }
        if (opened == logFile) {
            opened = nullptr;
        }
    }

    // The steps that may throw come first.
    const qv::CancellationOff uncut;
    const bool ownsOutput = opened.get() != nullptr ? !isShared : ownedLogFile;
    if (opened.get() != nullptr) {
        String oldPath;
        String newPath;
        logFile->getCurrentPath(oldPath, false);
        opened->getCurrentPath(newPath, false);
        changes.add(settings.path.empty() ? "OutputStream" : "OutputPath", quoted(oldPath), quoted(newPath));
    }
    changes.add("FileMode", fileModeText(fileMode), fileModeText(settings.fileMode));
    changes.add("Fallback", truth(fallsBack), truth(settings.fallsBack));
    changes.add("PriorityPrefix", truth(getPriorityPrefix()), truth(settings.priorityPrefix));
    changes.add("EscapeControls", truth(escapesControls), truth(settings.escapesControls));
    changes.add("TimestampInLocalTime", truth(getLocaltime()), truth(settings.localtime));
    changes.add("TimeFormat", getTimeFormatName(getTimeFormat()), getTimeFormatName(settings.timeFormat));
    changes.add("SeverityMask", textOf([&](std::ostream& os) { writeSeverityMask(os, severity.mask()); }),
                textOf([&](std::ostream& os) { writeSeverityMask(os, settings.severityMask); }));
    changes.add("Severity", getSeverityName(severity.minimum()), getSeverityName(settings.minimum));
    changes.add("OutputMask", textOf([&](std::ostream& os) { writeOutputMask(os, getOutputMask()); }),
                textOf([&](std::ostream& os) { writeOutputMask(os, settings.outputMask); }));
    changes.add("ModuleFilter", filterText(modules->getModulesRequested()), filterText(settings.modules));
    changes.add("ModuleLimits", quoted(ModuleLimits::text(moduleLimits().limits())),
                quoted(ModuleLimits::text(limits)));
    changes.add("RemoteControlAllowed", truth(remoteControlAllowed()), truth(settings.remoteControl));
    if (ownsOutput) {
        // A new file that replaces a shared one has no limits yet.
        const std::size_t oldNumber = ownedLogFile ? logFile->getMaxNumberOfFiles() : 0;
        const std::size_t oldSize = ownedLogFile ? logFile->getMaxFileSize() : 0;
        changes.add("MaxFiles", quoted(oldNumber), quoted(settings.maxNumberOfFiles));
        changes.add("MaxFileSize", quoted(oldSize), quoted(settings.maxFileSize));
    }
    modules->setModulesRequested(settings.modules);

    if (isShared && opened.get() != nullptr) {
        logFile->close();
        replaceLogFile(opened, false);
    } else {
        replaceOutput(opened, settings);
    }
    streamHeaderDone = streamHeaderDone && opened.get() == nullptr;
    fileMode = settings.fileMode;
    fallsBack.store(settings.fallsBack, std::memory_order_relaxed);
    if (settings.escapesControls) {
        PrefixFormat::hasOptions.store(true, std::memory_order_relaxed);
    }
    escapesControls.store(settings.escapesControls, std::memory_order_relaxed);
    __atomic_store_n(&LOG_LOCALTIME, settings.localtime, __ATOMIC_RELAXED);
    severity.set(settings.severityMask, settings.minimum);
    RecordPriority::setEnabled(settings.priorityPrefix);
    setPrefixFormat(settings.outputMask, settings.timeFormat);
    flagAllowRemoteControl.store(settings.remoteControl, std::memory_order_relaxed);
    moduleLimits().exchange(limits, endedLimits);
    state().limitsHaveChanged();
    holder.release(true);
    // Closes the old output.
    opened.clear();

    if (isDefault() && !changes.empty()) {
        Statement statement(INTERNAL_LOG_MODULE, Severity_INFO);
        Header& report = statement.header(REPORT_SOURCE, __LINE__);
        changes.write(report.os());
        report.throwIfTruncated();
        log(INTERNAL_LOG_MODULE, report, true);
    }
    for (const LimitReport& report : ModuleLimits::ends(endedLimits)) {
        reportLimit(report);
    }
}

LogFileRef Write::openAgain() const
{
    LogFileRef file;
    String path;
    {
        const StateHolder holder(stateSync.acquire());
        path = ownedLogFile ? logFile->getPath() : String();
        if (path.empty()) {
            return file;
        }
        file = newLogFile();
    }
    file->openAt(path);
    return file;
}

bool Write::reopenFile()
{
    for (int attempt = 1;; ++attempt) {
        LogFileRef opened = openAgain();
        if (opened.get() == nullptr) {
            return false;
        }
        const qv::CancellationOff uncut;
        StateHolder holder(stateSync.acquire());
        // Another thread may have set another path, or the file may have been rotated.
        bool isCurrent = ownedLogFile && logFile->exchangeReopened(*opened);
        if (!isCurrent && attempt >= MOST_ATTEMPTS && ownedLogFile
            && logFile->getPath() == opened->getPath()) {
            logFile->replaceOutput(opened.get(),
                                   {fileMode, logFile->getMaxFileSize(), logFile->getMaxNumberOfFiles()});
            isCurrent = true;
        }
        if (isCurrent) {
            streamHeaderDone = false;
        }
        holder.release(true);
        // Closes the old file, or the new one if it is not used.
        opened.clear();
        if (isCurrent) {
            return true;
        }
    }
}

}
