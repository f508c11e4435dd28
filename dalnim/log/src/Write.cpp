#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/ModuleRegistration.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/CurrentPrefix.hpp>
#include <dalnim/log/src/EscapedText.hpp>
#include <dalnim/log/src/ForkHandlers.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/LogFileLine.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/LoggerState.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/log/src/RecordOptions.hpp>
#include <dalnim/log/src/RecordLine.hpp>
#include <dalnim/log/src/RecordPriority.hpp>
#include <dalnim/log/src/StatementClock.hpp>
#include <dalnim/log/src/StreamHeader.hpp>
#include <dalnim/log/src/StreamOutput.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/src/EvidenceOutput.hpp>
#include <qv/pmx/src/probes.hpp>

#include <cerrno>
#include <ctime>
#include <string>
#include <string_view>
#include <typeinfo>

namespace com::kor::dal::nim::log {

namespace {

/** Appends the text of a record. One that is escaped is trimmed first: its white space would not be removed.
 */
void appendText(String& record, std::string_view text, bool escapesControls)
{
    if (!escapesControls) {
        record.append(text);
        return;
    }
    LineBuffer line;
    appendEscaped(line, text.substr(0, trimmedLength(text, 0)));
    record.append(line.view());
}

}

Write::Write()
    : stateSync(false), flagAllowRemoteControl(false), streamHeaderDone(false), escapesControls(false),
      fallsBack(false), prefixFormat(PrefixFormat::pack(getOutputMaskDefault(), TimeFormat_LOCAL)),
      severity(getSeverityDefault()), logFile(new LogFile), ownedLogFile(true), fileMode(MODE_OF_UMASK),
      modules(std::make_unique<ModuleRegistration>()), forkEntry(std::make_unique<LoggerState>(stateSync))
{
}

Write::~Write()
{
    if (PrefixFormat::needsFraction(prefixFormat.load(std::memory_order_relaxed))) {
        StatementClock::release();
    }
    modules.reset();
}

bool Write::isSeveritySatisfied(Severity sev) const
{
    return severity.passes(sev);
}

void Write::log(const Module& mod, const Header& rec, bool force)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const bool isPlain = typeid(*this) == typeid(Write);
    // A subclass may override the check.
    if (!force
        && !(isPlain ? severity.passes(rec.getSeverityId()) : isSeveritySatisfied(rec.getSeverityId()))) {
        return;
    }
    const bool hasOptions = RecordOptions::any();
    if (__builtin_expect(hasOptions, false) && state().isLimited() && !force
        && !isAdmitted(mod, rec.getSeverityId())) {
        return;
    }
    try {
        if (!isPlain) {
            logOverridden(mod, rec);
        } else if (__builtin_expect(hasOptions, false)) {
            formatAndLogWithPriority(mod, rec);
        } else {
            formatAndLog(mod, rec);
        }
    } catch (...) {
        state().counters.countFailed(rec.getSeverityId());
        throw;
    }
}

void Write::logOverridden(const Module& mod, const Header& rec)
{
    const RecordPriority priority(rec.getSeverityId());
    // The operations that a subclass may override are called with the lock held.
    const StateHolder holder(stateSync.acquire());
    if (!beginOutput() && logFile->getPath().empty()) {
        // The path was cleared, so that log() writes to standard error. Otherwise it fails again below.
        StreamOutput::writeToFallback("");
    }
    String record = format(mod, rec);
    const std::size_t prefixLength = record.size();
    appendText(record, rec.text(), escapesControls.load(std::memory_order_relaxed));
    const CurrentPrefix prefix(std::string_view(record).substr(0, prefixLength));
    const LoggerState::SeverityScope current(state(), rec.getSeverityId());
    log(record);
    QV_PROBE_RECORD(mod.getName().c_str(), rec.getSeverityId(), record.size());
}

void Write::formatAndLogWithPriority(const Module& mod, const Header& rec)
{
    const RecordPriority priority(rec.getSeverityId());
    formatAndLog(mod, rec);
}

// See AppendFile.hpp.
[[gnu::always_inline]] inline void Write::formatAndLog(const Module& mod, const Header& rec)
{
    RecordLine line(mod, rec);
    // Not getOutputMask(): only a plain Write comes here.
    const unsigned int format = prefixFormat.load(std::memory_order_acquire);
    const bool escapes = escapesControls.load(std::memory_order_relaxed);
    try {
        line.format(format, escapes);
    } catch (...) {
        // A new output begins with its stream header, also if its first record cannot be formatted.
        const StateHolder holder(stateSync.acquire());
        beginOutput();
        throw;
    }

    const StateHolder holder(stateSync.acquire());
    const bool hasBegun = beginOutput();
    const unsigned int currentFormat = prefixFormat.load(std::memory_order_acquire);
    const bool currentEscapes = escapesControls.load(std::memory_order_relaxed);
    if (currentFormat != format || currentEscapes != escapes) {
        line.format(currentFormat, currentEscapes);
    }
    LineOutcome outcome = {false, LineOutcome::Rotation::NONE};
    if (hasBegun) {
        outcome = writeLine(line.view());
    } else {
        StreamOutput::writeToFallback(line.view());
    }
    state().counters.countLine(rec.getSeverityId(), line.view().size(), outcome);
    QV_PROBE_RECORD(mod.getName().c_str(), rec.getSeverityId(), line.view().size());
}

bool Write::beginOutput() const
{
    try {
        if (!streamHeaderDone) {
            streamHeader();
        }
        return true;
    } catch (const sys::system_error&) {
        if (!fallsBack.load(std::memory_order_relaxed)) {
            throw;
        }
        return false;
    }
}

// See AppendFile.hpp.
[[gnu::always_inline]] inline LineOutcome Write::writeLine(std::string_view line)
{
    try {
        return logFile->logLine(line);
    } catch (const sys::system_error&) {
        // The output could not be opened, and nothing of the line was written.
        if (!fallsBack.load(std::memory_order_relaxed)) {
            throw;
        }
        StreamOutput::writeToFallback(line);
        return {false, LineOutcome::Rotation::NONE};
    }
}

void Write::log(const String& msg)
{
    LogCounters& counters = state().counters;
    const Severity current = state().currentSeverity;
    // With the newline, without the white space that is trimmed.
    const std::size_t length =
        Statistics::isEnabled() ? trimmedLength(msg, CurrentPrefix::lengthIn(msg)) + 1 : 0;
    try {
        counters.countLine(current, length, logFile->logMessage(msg));
    } catch (const sys::system_error&) {
        if (!fallsBack.load(std::memory_order_relaxed)) {
            throw;
        }
        LineBuffer line;
        line.append(msg);
        terminateLine(line, CurrentPrefix::lengthIn(msg));
        StreamOutput::writeToFallback(line.view());
        counters.countLine(current, length, {false, LineOutcome::Rotation::NONE});
    }
}

// Without the lock: Module documents that its users serialise registrations; the filter is read by
// operations that need no lock.
DALNIM_NO_LOCK_ANALYSIS ModuleRegistration& Write::moduleRegistrar()
{
    return *modules;
}

bool Write::is_open() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->is_open();
}

bool Write::is_valid() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->is_valid();
}

bool Write::is_reserved() const
{
    const StateHolder holder(stateSync.acquire());
    return logFile->is_reserved();
}

std::ios* Write::getStream() const
{
    const sys::StackTrack track("getStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    if (!streamHeaderDone) {
        streamHeader();
    }
    // After the header: if that was rejected, the output is another stream.
    return logFile->getStream();
}

void Write::registerModule(const Module& module)
{
    const sys::StackTrack track("registerModule()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    if (modules->getModuleActual(module.getName()) == nullptr) {
        modules->addModulesActual(module);
    }
}

void Write::unregisterModule(const Module& module)
{
    const StateHolder holder(stateSync.acquire());
    modules->removeFromModulesActual(module);
}

LogFileRef& Write::getOwnedLogFile()
{
    if (!ownedLogFile) {
        replaceLogFile(newLogFile(), true);
    }
    return logFile;
}

LogFileRef Write::newLogFile() const
{
    LogFileRef file(new LogFile);
    file->setFileMode(fileMode);
    return file;
}

void Write::replaceLogFile(const LogFileRef& file, bool owned)
{
    // Destroyed after the lock: the old file must not be closed under InitLock.
    const LogFileRef old(logFile);
    {
        const sys::InitLock lock(true);
        logFile = file;
        ownedLogFile = owned;
    }
    if (sys::internal::EvidenceOutput::isFollowingLog() && isDefault()) {
        logFile->publish();
    }
}

void Write::publishOutput() const
{
    const StateHolder holder(stateSync.acquire());
    logFile->publish();
}

bool Write::isDefault() const
{
    return static_cast<const Log*>(this) == &GET_NIM_LOG_LOGGER_VAR();
}

void Write::streamHeader() const
{
    // Opened first, since the configuration contains its name.
    logFile->open();
    if (isDefault() && !writeHeader(STREAM_HEADER_TITLE, Severity_INFO)) {
        revertStreamHeader(errno);
    }
    streamHeaderDone = true;
}

void Write::revertStreamHeader(int error) const
{
    String path;
    logFile->getCurrentPath(path, false);
    const String message = "Unable to write to log output stream \"" + path + "\": ";

    // This destroys the failed stream if it is the logger's own file. The header below is therefore written
    // to the stream that the record will be written to.
    if (!logFile->revertStream()) {
        throw sys::system_error(error, message + sys::sys_err_string(error));
    }
    if (!writeHeader(message + sys::sys_err_string(error) + "; " + STREAM_HEADER_TITLE, Severity_ERROR)) {
        const int secondError = errno;
        throw sys::system_error(secondError, message + sys::sys_err_string(secondError));
    }
}

bool Write::writeHeader(const String& msg, Severity sev) const
{
    // A statement's record, because a forked child may be unable to construct a stream: see SpareHeaders.
    Statement statement(INTERNAL_LOG_MODULE, sev);
    Header& header = statement.header("", 0);
    // If memory runs out, nothing is written rather than a part.
    header.exceptions(std::ios_base::badbit);
    const RecordPriority priority(sev);
    writeLogMessage(header, msg, sev);
    writeLogConfig(header);
    return logFile->begin(header.str());
}

std::ostream& Write::writeLogConfig(std::ostream& os) const
{
    String path;
    logFile->getCurrentPath(path, false);
    os << STREAM_HEADER_OUTPUT_PATH << '"' << path << '"' << std::endl;
    writeOutputMask(os << STREAM_HEADER_OUTPUT_MASK, getOutputMask()) << std::endl;
    if (severity.mask() != 0) {
        writeSeverityMask(os << STREAM_HEADER_SEVERITY_MASK, severity.mask()) << std::endl;
    } else {
        os << STREAM_HEADER_SEVERITY_MIN << getSeverityName(severity.minimum()) << std::endl;
    }
    const std::list<String>& filter = modules->getModulesRequested();
    if (filter.empty()) {
        os << STREAM_HEADER_MODULE_FILTER << " *" << std::endl;
    } else {
        os << STREAM_HEADER_MODULE_FILTER << std::endl;
        for (const String& entry : filter) {
            os << '\t' << entry << std::endl;
        }
    }
    return os;
}

std::ostream& Write::writeLogMessage(std::ostream& os, const String& msg, Severity sev)
{
    return os << getDateTime(std::time(nullptr)) << SEPARATOR << sys::System::hostname() << SEPARATOR
              << getProcessName() << SEPARATOR << std::to_string(getProcessId()) << SEPARATOR
              << std::to_string(sys::System::threadId()) << SEPARATOR << INTERNAL_LOG_MODULE.getName()
              << SEPARATOR << getSeverityName(sev) << STREAM_HEADER_TERMINATOR << msg << std::endl;
}

}
