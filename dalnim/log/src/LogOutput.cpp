#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/LogOutput.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Control.hpp>
#include <dalnim/log/LogFile.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/EvidenceLog.hpp>
#include <qv/pmx/path.h>
#include <qv/pmx/src/probes.hpp>
#include <dalnim/log/src/FileTrace.hpp>
#include <dalnim/log/src/RotatedFiles.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <exception>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::log {

namespace {

constexpr mode_t DIRECTORY_MODE = 0755;

/** Returns the stream for lines that the output rejects. */
std::ostream& fallbackStream()
{
    return *STD_LOG_STREAMS[0].addr;
}

RX_String toRX(const String& text)
{
    return RX_String(text.data(), text.size());
}

void createDirectory(const String& path)
{
    const RX_String directory = RX_Filespec(toRX(path), RX_Filespec::DONTCARE, 0).directory();
    if (qv_si_isdir(directory.data()) == ENOENT) {
        // Only the last level. A failure shows when the file is opened.
        ::mkdir(directory.data(), DIRECTORY_MODE);
    }
}

/** Returns true if opening a file that failed with `error` may succeed shortly afterwards. */
bool isShortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR;
}

#ifdef DALNIM_PROBES

/** Returns the error number of an exception that has ended a rotation; ENOMEM if it has none. */
int rotationError(const std::exception& exc) noexcept
{
    const auto* const error = dynamic_cast<const sys::system_error*>(&exc);
    return error != nullptr ? error->error() : ENOMEM;
}

#endif

/** Opens the file again after a rotation, which may have to wait for resources. Returns 0 or the error
 * number. */
int reopen(AppendFile& file, const String& path, unsigned int mode)
{
    constexpr std::chrono::milliseconds MAX_WAIT(100);
    constexpr timespec PAUSE = {0, 1000000};
    const auto deadline = std::chrono::steady_clock::now() + MAX_WAIT;
    int error = file.open(path, mode);
    while (isShortage(error) && std::chrono::steady_clock::now() < deadline) {
        ::nanosleep(&PAUSE, nullptr);
        error = file.open(path, mode);
    }
    return error;
}

}

LogOutput::LogOutput()
    : outputStream(&fallbackStream()), sizeLimit(0), rotatedLimit(0), newFileMode(Control::MODE_OF_UMASK),
      rotatedCount(0)
{
}

LogOutput::~LogOutput()
{
    EvidenceLog::unwatch(*this);
}

void LogOutput::setPath(const String& path)
{
    close();
    if (!path.empty()) {
        outputPath = path;
        rotatedCount = 0;
        rotatedCount = RotatedFiles(outputPath).count();
    }
}

std::ostream* LogOutput::stream()
{
    open();
    if (file != nullptr) {
        return &file->stream();
    }
    return outputStream;
}

void LogOutput::setStream(std::ostream& stream)
{
    close();
    outputStream = &stream;
}

void LogOutput::setMaxNumberOfFiles(std::size_t number)
{
    rotatedLimit = number;
    if (number != 0 && rotatedCount > number) {
        // Without a path, the count is that of the previous one, whose files no longer belong to this log.
        if (!outputPath.empty()) {
            RotatedFiles(outputPath).remove(number, rotatedCount - 1);
        }
        rotatedCount = number;
    }
}

bool LogOutput::isOpen() const noexcept
{
    return file != nullptr ? file->isGood() : outputStream != nullptr && !outputStream->fail();
}

bool LogOutput::isValid() const noexcept
{
    return file != nullptr || outputStream != nullptr;
}

bool LogOutput::isReserved() const noexcept
{
    return outputStream != nullptr;
}

String LogOutput::displayPath() const
{
    if (!outputPath.empty()) {
        return outputPath;
    }
    if (outputStream == nullptr) {
        return "<not set>";
    }
    for (const LogStreamRec& standard : STD_LOG_STREAMS) {
        if (standard.addr == outputStream) {
            return standard.name;
        }
    }
    return "<user assigned stream>";
}

void LogOutput::close() noexcept
{
    outputPath.clear();
    outputStream = nullptr;
    file.reset();
    followChange();
}

bool LogOutput::revertStream() noexcept
{
    if (outputStream == &fallbackStream()) {
        return false;
    }
    close();
    outputStream = &fallbackStream();
    return true;
}

void LogOutput::exchange(LogOutput& other) noexcept
{
    outputPath.swap(other.outputPath);
    std::swap(outputStream, other.outputStream);
    file.swap(other.file);
    std::swap(rotatedCount, other.rotatedCount);
    followChange();
    other.followChange();
}

void LogOutput::publish() const noexcept
{
    EvidenceLog::watch(*this);
    followChange();
}

void LogOutput::followChange() const noexcept
{
    if (EvidenceLog::isWatched(*this)) {
        sys::internal::EvidenceOutput::setLogFile(file != nullptr ? file->number() : -1);
    }
}

bool LogOutput::isOpenAt(const String& path) const noexcept
{
    return file != nullptr && outputPath == path;
}

bool LogOutput::isAtItsPath() const noexcept
{
    return file == nullptr || file->isAt(outputPath);
}

void LogOutput::openAt(const String& path)
{
    close();
    outputPath = path;
    rotatedCount = 0;
    open();
    rotatedCount = RotatedFiles(outputPath).count();
}

void LogOutput::openOutput()
{
    if (outputPath.empty()) {
        outputStream = &fallbackStream();
    } else {
        openFile();
    }
}

void LogOutput::openFile()
{
    const sys::StackTrack track("unlockedGetStream()", LogFile::CLASS_NAME, NAMESPACE_NAME, __LINE__);
    createDirectory(outputPath);
    checkCreatable();

    std::unique_ptr<AppendFile> opened;
    int error = 0;
    try {
        opened = std::make_unique<AppendFile>();
        error = opened->open(outputPath, newFileMode);
    } catch (const std::bad_alloc&) {
        outputPath.clear();
        throw;
    }
    if (error != 0) {
        outputPath.clear();
        throw sys::system_error(error);
    }
    file = std::move(opened);
    followChange();
}

void LogOutput::checkCreatable()
{
    try {
        RX_Filespec(toRX(outputPath), RX_Filespec::CREATE, 0).filespec();
    } catch (const RX_ExWarning&) {
        outputPath.clear();
        throw sys::system_error(EACCES);
    } catch (const RX_Exception& exc) {
        sys::internal::throwTranslated(exc);
    }
}

bool LogOutput::begin(std::string_view text)
{
    open();
    const qv::CancellationOff uncut;
    return tryWrite(text);
}

bool LogOutput::hasReachedLimit(bool isWritten)
{
    if (file == nullptr || !file->isRotatable()) {
        return false;
    }
    if (isWritten) {
        return file->hasReached(sizeLimit);
    }
    // The position is that of the output used instead. If it has reached the limit, or has none, the file is
    // rotated, so that the log continues in a new file.
    return StreamOutput::position(fallbackStream()) >= sizeLimit;
}

bool LogOutput::switchFile()
{
    FileTrace::print(__LINE__, "switchFile", "Switching log file [", outputPath, "] ...");
    try {
        file->close();
        FileTrace::print(__LINE__, "switchFile", "numFiles=", rotatedCount, " maxFiles=", rotatedLimit);
        rotatedCount = RotatedFiles(outputPath).rotate(rotatedCount, rotatedLimit);
        if (const int error = reopen(*file, outputPath, newFileMode)) {
            throw sys::system_error(error, "Failed to open log file [" + outputPath + "]"
                                               + sys::sys_err_string(error));
        }
        QV_PROBE_ROTATION(outputPath.c_str(), rotatedCount, 0);
        followChange();
        return true;
    } catch (const std::exception& exc) {
        QV_PROBE_ROTATION(outputPath.c_str(), std::size_t(0), rotationError(exc));
        // The current line has been written: no record fails because its file could not be rotated.
        FileTrace::print<Severity_ERROR>(__LINE__, "switchFile", "ERROR: ", exc.what());
        revertStream();
        return false;
    }
}

}
