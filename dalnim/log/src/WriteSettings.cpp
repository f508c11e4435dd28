#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/LoggerState.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/log/src/RecordPriority.hpp>
#include <dalnim/log/src/StatementClock.hpp>
#include <dalnim/log/src/StreamOutput.hpp>
#include <dalnim/log/src/SettingsText.hpp>
#include <dalnim/log/src/StreamHeader.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace com::kor::dal::nim::log {

namespace {

constexpr char CIMOM_STREAM[] = "CIMOM";
/** Name of the module by which another component offers the log file of its own logger. */
constexpr char CIMOM_MODULE[] = "com_kor_dal_nim_log_module_CIMOM";

void checkSeverity(Severity severity)
{
    if (severity < Severity_MIN || severity > Severity_MAX) {
        throw std::out_of_range("Illegal Severity");
    }
}

constexpr unsigned int severityBit(Severity severity)
{
    return 1U << static_cast<unsigned int>(severity);
}

/** Returns the lowest severity of a mask, which must not be 0. */
Severity lowestSeverity(unsigned int mask)
{
    unsigned int severity = Severity_MIN;
    while ((mask >> severity & 1U) == 0) {
        ++severity;
    }
    return static_cast<Severity>(severity);
}

/**
 * Writes a mask as "0x14 [SEVERITY,PROCESSNAME]": the number `shown`, and `name(bit)` for each bit of
 * `named`.
 */
template <class Name>
std::ostream& writeMask(std::ostream& os, unsigned int shown, unsigned int named, Name name)
{
    os << SHOWN_MASK_NUMBER << std::hex << shown << std::dec << SHOWN_MASK_NAMES;
    const char* comma = "";
    for (unsigned int bit = 0; named >> bit != 0; ++bit) {
        if ((named >> bit & 1U) != 0) {
            os << comma << name(bit);
            comma = ",";
        }
    }
    return os << ']';
}

constexpr unsigned int ALL_PERMISSIONS = 0777;
constexpr unsigned int OWNER_MAY_WRITE = 0200;

const LogStreamRec& standardStream(const String& name)
{
    const auto found = std::find_if(std::begin(STD_LOG_STREAMS), std::end(STD_LOG_STREAMS),
                                    [&name](const LogStreamRec& record) { return record.name == name; });
    if (found == std::end(STD_LOG_STREAMS)) {
        throw std::out_of_range("Illegal output stream name");
    }
    return *found;
}

}

template <class Writer>
void Write::reportChange(unsigned int line, const char* setting, Writer writeOldAndNew)
{
    if (!isDefault()) {
        return;
    }
    // Not an ostringstream: see SpareHeaders.
    Statement statement(INTERNAL_LOG_MODULE, Severity_INFO);
    Header& report = statement.header(REPORT_SOURCE, line);
    report.os() << CHANGE_REPORT_TITLE << setting << std::endl;
    writeOldAndNew(report.os());
    report.throwIfTruncated();
    log(INTERNAL_LOG_MODULE, report, true);
}

template <class Value>
void Write::reportOldAndNew(unsigned int line, const char* setting, const Value& oldValue,
                            const Value& newValue)
{
    reportChange(line, setting, [&](std::ostream& os) {
        os << CHANGE_REPORT_OLD_VALUE << oldValue << std::endl << CHANGE_REPORT_NEW_VALUE << newValue;
    });
}

bool Write::remoteControlAllowed() const
{
    return flagAllowRemoteControl.load(std::memory_order_relaxed);
}

bool Write::allowRemoteControl(bool allow)
{
    const sys::StackTrack track("allowRemoteControl()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    const bool old = remoteControlAllowed();
    if (old == allow) {
        return old;
    }
    flagAllowRemoteControl.store(allow, std::memory_order_relaxed);
    holder.release(true);
    reportOldAndNew(__LINE__, "RemoteControlAllowed", truth(old), truth(allow));
    return old;
}

bool Write::changeSwitch(std::atomic<bool>& flag, bool value, unsigned int line, const char* label)
{
    StateHolder holder(stateSync.acquire());
    const bool old = flag.exchange(value, std::memory_order_relaxed);
    if (old == value) {
        return old;
    }
    holder.release(true);
    reportOldAndNew(line, label, truth(old), truth(value));
    return old;
}

bool Control::getEscapeControls() const
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    return logger != nullptr && logger->escapesControls.load(std::memory_order_relaxed);
}

bool Control::setEscapeControls(bool on)
{
    const sys::StackTrack track("setEscapeControls()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    if (on) {
        PrefixFormat::hasOptions.store(true, std::memory_order_relaxed);
    }
    return logger.changeSwitch(logger.escapesControls, on, __LINE__, "EscapeControls");
}

bool Control::getFallback() const
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    return logger != nullptr && logger->fallsBack.load(std::memory_order_relaxed);
}

bool Control::setFallback(bool on)
{
    const sys::StackTrack track("setFallback()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    return logger.changeSwitch(logger.fallsBack, on, __LINE__, "Fallback");
}

bool Control::getPriorityPrefix() const noexcept
{
    return RecordPriority::isEnabled();
}

bool Control::setPriorityPrefix(bool on)
{
    const sys::StackTrack track("setPriorityPrefix()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    Write::StateHolder holder(logger.stateSync.acquire());
    const bool old = RecordPriority::setEnabled(on);
    if (old == on) {
        return old;
    }
    holder.release(true);
    logger.reportOldAndNew(__LINE__, "PriorityPrefix", truth(old), truth(on));
    return old;
}

TimeFormat Control::getTimeFormat() const
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    // Acquires that fractions are being read, for format(): a subclass may call that without the lock.
    return logger != nullptr ? PrefixFormat::timeFormat(logger->prefixFormat.load(std::memory_order_acquire))
                             : TimeFormat_LOCAL;
}

void Control::setTimeFormat(TimeFormat format)
{
    const sys::StackTrack track("setTimeFormat()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    if (format > TimeFormat_OFFSET_US) {
        throw std::out_of_range("Illegal Time Format");
    }
    Write::StateHolder holder(logger.stateSync.acquire());
    const TimeFormat old = logger.getTimeFormat();
    if (old == format) {
        return;
    }
    logger.setPrefixFormat(PrefixFormat::mask(logger.prefixFormat.load(std::memory_order_relaxed)), format);
    holder.release(true);
    logger.reportOldAndNew(__LINE__, "TimeFormat", getTimeFormatName(old), getTimeFormatName(format));
}

void Control::setTimeFormat(const String& name)
{
    const sys::StackTrack track("setTimeFormat()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    setTimeFormat(getTimeFormatId(name));
}

void Write::setPrefixFormat(unsigned int mask, TimeFormat format) noexcept
{
    const unsigned int changed = PrefixFormat::pack(mask, format);
    if (format != TimeFormat_LOCAL) {
        PrefixFormat::hasOptions.store(true, std::memory_order_relaxed);
    }
    // First, so that the clock does not stop reading fractions in between.
    if (PrefixFormat::needsFraction(changed)) {
        StatementClock::acquire();
    }
    // Released, so that a record in this format finds that fractions are being read.
    const unsigned int old = prefixFormat.exchange(changed, std::memory_order_acq_rel);
    if (PrefixFormat::needsFraction(old)) {
        StatementClock::release();
    }
}

unsigned int Control::getFileMode() const
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    if (logger == nullptr) {
        return MODE_OF_UMASK;
    }
    const Write::StateHolder holder(logger->stateSync.acquire());
    return logger->fileMode;
}

void Control::setFileMode(unsigned int mode)
{
    const sys::StackTrack track("setFileMode()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    if (mode != MODE_OF_UMASK && (mode > ALL_PERMISSIONS || (mode & OWNER_MAY_WRITE) == 0)) {
        throw std::out_of_range("Illegal File Mode");
    }
    Write::StateHolder holder(logger.stateSync.acquire());
    const unsigned int old = logger.fileMode;
    if (old == mode) {
        return;
    }
    logger.fileMode = mode;
    if (logger.ownedLogFile) {
        logger.logFile->setFileMode(mode);
    }
    holder.release(true);
    logger.reportOldAndNew(__LINE__, "FileMode", fileModeText(old), fileModeText(mode));
}

const String Write::getPath() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->getPath();
}

void Write::setPath(const String& path)
{
    const sys::StackTrack track("setPath()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    LogFileRef& file = getOwnedLogFile();
    if (path == file->getPath()) {
        return;
    }
    String old;
    file->getCurrentPath(old, false);
    // Even if the new path cannot be used: the old output is closed, and the next one begins with a stream
    // header.
    streamHeaderDone = false;
    file->setPath(path);
    holder.release(true);
    reportOldAndNew(__LINE__, "OutputPath", quoted(old), quoted(path));
}

void Write::setStream(const String& stream)
{
    const sys::StackTrack track("setStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    String oldPath;
    String newPath;
    if (stream == CIMOM_STREAM) {
        const LogFileRef shared = cimomLogFile();
        if (shared == logFile) {
            return;
        }
        logFile->getCurrentPath(oldPath, false);
        logFile->close();
        replaceLogFile(shared, false);
    } else {
        std::ostream* const output = standardStream(stream).addr;
        StreamOutput::recheckDescriptor(*output);
        if (logFile->getStream() == output) {
            return;
        }
        // A shared file is replaced by a new one, whose output is the old value in the report.
        LogFileRef& file = getOwnedLogFile();
        file->getCurrentPath(oldPath, false);
        file->setStream(*output);
    }
    logFile->getCurrentPath(newPath, false);
    streamHeaderDone = false;
    holder.release(true);
    reportOldAndNew(__LINE__, "OutputStream", quoted(oldPath), quoted(newPath));
}

LogFileRef Write::cimomLogFile() const
{
    const Write* owner = nullptr;
    if (Module* const module = modules->getModuleActual(CIMOM_MODULE)) {
        owner = dynamic_cast<const Write*>(&module->control());
    }
    if (owner == nullptr) {
        throw std::invalid_argument("CIMOM stream is not available");
    }
    qv::perturb();
    // The owner exists while its module is registered here, which stateSync guards.
    return owner->fileToShare();
}

// Without stateSync: two loggers that share each other's files would deadlock. The reference changes under
// both locks.
DALNIM_NO_LOCK_ANALYSIS LogFileRef Write::fileToShare() const
{
    const sys::InitLock lock(true);
    return logFile;
}

void Write::setStream(std::ios& stream)
{
    const sys::StackTrack track("setStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    // A stream that is rejected must not end the sharing of a file.
    LogFileRef file = ownedLogFile ? logFile : newLogFile();
    file->setStream(stream);
    if (!ownedLogFile) {
        replaceLogFile(file, true);
    }
}

unsigned int Write::getOutputMask() const
{
    return PrefixFormat::mask(prefixFormat.load(std::memory_order_relaxed));
}

void Write::setOutputMask(unsigned int newMask)
{
    const sys::StackTrack track("setOutputMask()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (newMask > Mask_ALL) {
        throw std::out_of_range("Illegal Output Mask");
    }
    StateHolder holder(stateSync.acquire());
    const unsigned int old = getOutputMask();
    if (old == newMask) {
        return;
    }
    setPrefixFormat(newMask, getTimeFormat());
    holder.release(true);
    reportChange(__LINE__, OUTPUT_MASK_SETTING, [old, newMask](std::ostream& os) {
        writeOutputMask(os << CHANGE_REPORT_OLD_VALUE, old) << std::endl;
        writeOutputMask(os << CHANGE_REPORT_NEW_VALUE, newMask);
    });
}

Severity Write::getSeverity() const
{
    return severity.minimum();
}

void Write::setSeverity(Severity newSev)
{
    const sys::StackTrack track("setSeverity()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    checkSeverity(newSev);
    StateHolder holder(stateSync.acquire());
    const Severity old = severity.minimum();
    if (old == newSev && severity.mask() == 0) {
        return;
    }
    severity.set(0, newSev);
    holder.release(true);
    reportOldAndNew(__LINE__, "Severity", getSeverityName(old), getSeverityName(newSev));
}

void Write::getSeverityMask(SeverityColl& severities) const
{
    severities.clear();
    SeverityMaskData data;
    getSeverityMask(data, severity.mask());
    severities.insert(severities.end(), data.sevs, data.sevs + data.count);
}

void Write::getSeverityMask(StringColl& severities) const
{
    severities.clear();
    SeverityMaskData data;
    getSeverityMask(data, severity.mask());
    std::transform(data.sevs, data.sevs + data.count, std::back_inserter(severities), getSeverityName);
}

void Write::setSeverityMask(Severity severityId, bool on)
{
    const sys::StackTrack track("setSeverityMask()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    checkSeverity(severityId);
    StateHolder holder(stateSync.acquire());
    const unsigned int oldMask = severity.mask();
    unsigned int newMask = oldMask;
    // Compatibility: a mask whose last bit is removed lets all records pass. Removing NONE restores the
    // default threshold.
    Severity newMinimum = Severity_NONE;
    if (severityId != Severity_NONE) {
        newMask = on ? oldMask | severityBit(severityId) : oldMask & ~severityBit(severityId);
    } else if (!on) {
        newMask = 0;
        newMinimum = getSeverityDefault();
    }
    if (newMask != 0) {
        newMinimum = lowestSeverity(newMask);
    }
    if (newMinimum == severity.minimum() && newMask == oldMask) {
        return;
    }
    severity.set(newMask, newMinimum);
    holder.release(true);
    reportChange(__LINE__, "SeverityMask", [oldMask, newMask](std::ostream& os) {
        writeSeverityMask(os << CHANGE_REPORT_OLD_VALUE, oldMask) << std::endl;
        writeSeverityMask(os << CHANGE_REPORT_NEW_VALUE, newMask);
    });
}

void Write::setSeverityMask(const SeverityColl& severities, bool on)
{
    const sys::StackTrack track("setSeverityMask()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (severities.empty()) {
        return;
    }
    if (severities.size() == 1) {
        setSeverityMask(severities.front(), on);
        return;
    }
    unsigned int bits = 0;
    for (const Severity listed : severities) {
        checkSeverity(listed);
        bits |= severityBit(listed);
    }
    bits &= ~severityBit(Severity_NONE);

    StateHolder holder(stateSync.acquire());
    const unsigned int oldMask = severity.mask();
    // Compatibility: without `on` the listed severities remain, whereas the overload for one severity removes
    // it.
    const unsigned int newMask = on ? oldMask | bits : oldMask & bits;
    if (newMask == oldMask) {
        return;
    }
    severity.set(newMask, newMask != 0 ? lowestSeverity(newMask) : Severity_NONE);
    holder.release(true);
    const unsigned int shownMask = newMask != 0 ? newMask : severityBit(Severity_NONE);
    reportChange(__LINE__, "SeverityMask", [oldMask, shownMask](std::ostream& os) {
        writeSeverityMask(os << CHANGE_REPORT_OLD_VALUE, oldMask) << std::endl;
        writeSeverityMask(os << CHANGE_REPORT_NEW_VALUE, shownMask);
    });
}

void Write::setSeverityMask(const StringColl& severities, bool on)
{
    const sys::StackTrack track("setSeverityMask()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (severities.empty()) {
        return;
    }
    if (severities.size() == 1) {
        Control::setSeverityMask(severities.front(), on);
        return;
    }
    SeverityColl ids;
    std::transform(severities.begin(), severities.end(), std::back_inserter(ids), getSeverityId);
    setSeverityMask(ids, on);
}

bool Write::getLocaltime() const
{
    return __atomic_load_n(&LOG_LOCALTIME, __ATOMIC_RELAXED);
}

bool Write::setLocaltime(bool on)
{
    const sys::StackTrack track("setLocaltime()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    const bool old = __atomic_exchange_n(&LOG_LOCALTIME, on, __ATOMIC_RELAXED);
    if (old == on) {
        return old;
    }
    holder.release(true);
    reportOldAndNew(__LINE__, "TimestampInLocalTime", truth(old), truth(on));
    return old;
}

void Write::getModuleFilter(StringColl& filter) const
{
    const StateHolder holder(stateSync.acquire());
    const std::list<String>& requested = modules->getModulesRequested();
    filter.assign(requested.begin(), requested.end());
}

void Write::setModuleFilter(const String& module, bool on)
{
    const sys::StackTrack track("setModuleFilter()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    if (!on) {
        modules->removeModulesRequested(module);
    } else if (!module.empty()) {
        modules->addModulesRequested(module);
    }
    holder.release(true);
    // Reported each time, even if nothing has changed.
    reportChange(__LINE__, "ModuleFilter", [&](std::ostream& os) {
        os << "\tmodule " << quoted(module) << ' ' << (on ? "added" : "removed");
    });
}

std::size_t Write::getMaxFileSize() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->getMaxFileSize();
}

void Write::setMaxFileSize(std::size_t size)
{
    const sys::StackTrack track("setMaxFileSize()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    const std::size_t old = logFile->getMaxFileSize();
    if (!ownedLogFile || old == size) {
        return;
    }
    logFile->setMaxFileSize(size);
    holder.release(true);
    reportOldAndNew(__LINE__, "MaxFileSize", quoted(old), quoted(size));
}

std::size_t Write::getMaxNumberOfFiles() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->getMaxNumberOfFiles();
}

void Write::setMaxNumberOfFiles(std::size_t number)
{
    const sys::StackTrack track("setMaxNumberOfFiles()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    StateHolder holder(stateSync.acquire());
    const std::size_t old = logFile->getMaxNumberOfFiles();
    if (!ownedLogFile || old == number) {
        return;
    }
    logFile->setMaxNumberOfFiles(number);
    holder.release(true);
    reportOldAndNew(__LINE__, "MaxFiles", quoted(old), quoted(number));
}

void Write::getModulesRegisteredDynamic(StringColl& names) const
{
    const StateHolder holder(stateSync.acquire());
    names = modules->getNamesActual();
}

void Write::getModulesRegisteredStatic(StringColl& names) const
{
    getModulesRegisteredDynamic(names);
}

void Write::getSeverityMask(SeverityMaskData& data, unsigned int mask)
{
    data.count = 0;
    for (unsigned int bit = Severity_MIN; bit <= Severity_MAX; ++bit) {
        if ((mask >> bit & 1U) != 0) {
            data.sevs[data.count++] = static_cast<Severity>(bit);
        }
    }
    if (data.count == 0) {
        data.sevs[data.count++] = Severity_NONE;
    }
}

std::ostream& Write::writeOutputMask(std::ostream& os, unsigned int mask)
{
    if (mask == Mask_NONE) {
        return os << SHOWN_MASK_NUMBER << '0' << SHOWN_MASK_NAMES << getOutputName(mask) << ']';
    }
    return writeMask(os, mask, mask, [](unsigned int bit) { return getOutputName(1U << bit); });
}

std::ostream& Write::writeSeverityMask(std::ostream& os, unsigned int mask)
{
    return writeMask(os, mask, mask != 0 ? mask : severityBit(Severity_NONE),
                     [](unsigned int bit) { return getSeverityName(static_cast<Severity>(bit)); });
}

Control::ModuleLimitColl Control::getModuleLimits() const
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    if (logger == nullptr) {
        return {};
    }
    const Write::StateHolder holder(logger->stateSync.acquire());
    return logger->moduleLimits().limits();
}

void Control::setModuleLimits(const ModuleLimitColl& limits)
{
    const sys::StackTrack track("setModuleLimits()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    ModuleLimits::check(limits);
    const String newText = ModuleLimits::text(limits);
    ModuleLimitColl exchanged = limits;
    ModuleLimits::Buckets ended;
    Write::StateHolder holder(logger.stateSync.acquire());
    logger.moduleLimits().exchange(exchanged, ended);
    logger.state().limitsHaveChanged();
    holder.release(true);
    const String oldText = ModuleLimits::text(exchanged);
    if (oldText != newText) {
        logger.reportOldAndNew(__LINE__, "ModuleLimits", quoted(oldText), quoted(newText));
    }
    for (const LimitReport& report : ModuleLimits::ends(ended)) {
        logger.reportLimit(report);
    }
}

Statistics Control::getStatistics() const noexcept
{
    Statistics statistics;
    if (const auto* const logger = dynamic_cast<const Write*>(this)) {
        logger->state().counters.read(statistics);
        statistics.refusedStatements = logger->refusedStatements.load(std::memory_order_relaxed);
    }
    return statistics;
}

std::uint64_t Control::getRefusedStatements() const noexcept
{
    const auto* const logger = dynamic_cast<const Write*>(this);
    return logger != nullptr ? logger->refusedStatements.load(std::memory_order_relaxed) : 0;
}

}
