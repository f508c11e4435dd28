#include <dalnim/dalbase.hpp>

#include <dalnim/log/LogFile.hpp>

#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/CurrentPrefix.hpp>
#include <dalnim/log/src/ForkHandlers.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/LogFileLine.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <stdexcept>

namespace com::kor::dal::nim::log {

namespace {

typedef mt::MutexHolder<mt::CriticalSection> StateHolder;

}

LogFile::LogFile()
    : output(std::make_unique<LogOutput>()), stateSync(false),
      forkEntry(std::make_unique<ForkEntry>(ForkEntry::Kind::FILE, stateSync))
{
}

LogFile::~LogFile() = default;

String LogFile::getPath() const
{
    const StateHolder holder(stateSync.acquire());
    return output->path();
}

void LogFile::setPath(const String& path)
{
    const sys::StackTrack track("setPath()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    output->setPath(path);
}

std::ostream* LogFile::getStream() const
{
    const sys::StackTrack track("getStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    return output->stream();
}

void LogFile::setStream(std::ios& stream)
{
    const sys::StackTrack track("setStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto* const writable = dynamic_cast<std::ostream*>(&stream);
    if (writable == nullptr) {
        throw std::invalid_argument("Supplied std::ios is not a std::ostream.");
    }
    const StateHolder holder(stateSync.acquire());
    output->setStream(*writable);
}

std::size_t LogFile::getMaxFileSize() const
{
    const StateHolder holder(stateSync.acquire());
    return output->maxFileSize();
}

void LogFile::setMaxFileSize(std::size_t size)
{
    const StateHolder holder(stateSync.acquire());
    output->setMaxFileSize(size);
}

std::size_t LogFile::getMaxNumberOfFiles() const
{
    const StateHolder holder(stateSync.acquire());
    return output->maxNumberOfFiles();
}

void LogFile::setMaxNumberOfFiles(std::size_t number)
{
    const sys::StackTrack track("setMaxNumberOfFiles()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    output->setMaxNumberOfFiles(number);
}

unsigned int LogFile::getFileMode() const
{
    const StateHolder holder(stateSync.acquire());
    return output->fileMode();
}

void LogFile::setFileMode(unsigned int mode)
{
    const StateHolder holder(stateSync.acquire());
    output->setFileMode(mode);
}

bool LogFile::is_open() const
{
    const StateHolder holder(stateSync.acquire());
    return output->isOpen();
}

bool LogFile::is_valid() const
{
    const StateHolder holder(stateSync.acquire());
    return output->isValid();
}

bool LogFile::is_reserved() const
{
    const StateHolder holder(stateSync.acquire());
    return output->isReserved();
}

void LogFile::log(const String& msg)
{
    logMessage(msg);
}

LineOutcome LogFile::logMessage(const String& msg)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    LineBuffer line;
    line.append(msg);
    terminateLine(line, CurrentPrefix::lengthIn(msg));
    return logLine(line.view());
}

bool LogFile::begin(const String& text) const
{
    const StateHolder holder(stateSync.acquire());
    return output->begin(text);
}

void LogFile::publish() const
{
    const StateHolder holder(stateSync.acquire());
    output->publish();
}

void LogFile::open() const
{
    const StateHolder holder(stateSync.acquire());
    output->open();
}

void LogFile::replaceOutput(LogFile* other, const Limits& limits)
{
    const StateHolder holder(stateSync.acquire());
    if (other != nullptr) {
        output->exchange(other->ownOutput());
    }
    output->setFileMode(limits.fileMode);
    output->setMaxFileSize(limits.maxFileSize);
    output->setMaxNumberOfFiles(limits.maxNumberOfFiles);
}

bool LogFile::exchangeReopened(LogFile& other)
{
    const StateHolder holder(stateSync.acquire());
    // Checked under the lock, since another logger that shares this file may rotate it.
    if (output->path() != other.ownOutput().path() || !other.ownOutput().isAtItsPath()) {
        return false;
    }
    output->exchange(other.ownOutput());
    return true;
}

void LogFile::openAt(const String& path)
{
    const StateHolder holder(stateSync.acquire());
    output->openAt(path);
}

// Without the lock: no other thread uses the file.
DALNIM_NO_LOCK_ANALYSIS LogOutput& LogFile::ownOutput()
{
    return *output;
}

bool LogFile::isAtItsPath() const
{
    const StateHolder holder(stateSync.acquire());
    return output->isAtItsPath();
}

bool LogFile::isOpenAt(const String& path) const
{
    const StateHolder holder(stateSync.acquire());
    return output->isOpenAt(path);
}

bool LogFile::isSetTo(const std::ostream& stream) const
{
    const StateHolder holder(stateSync.acquire());
    return output->isSetTo(stream);
}

void LogFile::getCurrentPath(String& path, bool deep) const
{
    const StateHolder holder(stateSync.acquire());
    // Copies of a String share nothing in any case.
    static_cast<void>(deep);
    path = output->displayPath();
}

void LogFile::close() const
{
    const StateHolder holder(stateSync.acquire());
    output->close();
}

bool LogFile::revertStream() const
{
    const StateHolder holder(stateSync.acquire());
    return output->revertStream();
}

}
