#include <dalnim/dalbase.hpp>

#include <dalnim/log/LogFile.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/AppendFile.hpp>
#include <dalnim/log/src/FileTrace.hpp>
#include <dalnim/log/src/LineText.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_FilespecIterator.hpp>

#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <sys/stat.h>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::log {

namespace {

typedef mt::MutexHolder<mt::CriticalSection> StateHolder;

constexpr mode_t DIRECTORY_MODE = 0755;

/** The stream that takes what no other output takes. */
std::ostream& fallbackStream()
{
    return *STD_LOG_STREAMS[0].addr;
}

RX_String toRX(const String& text)
{
    return RX_String(text.data(), text.size());
}

/** Whether `stream` has taken `line`. What it raises, if it is asked to, is a refusal like any other. */
bool take(std::ostream& stream, std::string_view line)
{
    try {
        return stream.write(line.data(), static_cast<std::streamsize>(line.size())).flush().good();
    } catch (const std::exception&) {
        return false;
    }
}

/** Puts a line that its own stream has refused on standard error, where it survives. */
void rescue(std::string_view line)
{
    std::ostream& stream = fallbackStream();
    try {
        take(stream, String(STREAM_COMPLAINT).append(1, '\n').append(line));
    } catch (const std::bad_alloc&) {
        take(stream, STREAM_COMPLAINT);
        take(stream, "\n");
        take(stream, line);
    }
}

void createDirectory(const String& path)
{
    const RX_String directory = RX_Filespec(toRX(path), RX_Filespec::DONTCARE, 0).directory();
    if (qv_si_isdir(directory.data()) == ENOENT) {
        // Only the last level, and a failure shows when the file is opened.
        ::mkdir(directory.data(), DIRECTORY_MODE);
    }
}

}

LogFile::LogFile()
    : outputStream(&fallbackStream()), maxFileSize(0), maxFiles(0), numFiles(0), stateSync(false)
{
}

LogFile::~LogFile()
{
    unlockedClose();
}

String LogFile::getPath() const
{
    const StateHolder holder(stateSync.acquire());
    return outputPath;
}

void LogFile::setPath(const String& path)
{
    const sys::StackTrack track("setPath()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    unlockedClose();
    if (!path.empty()) {
        outputPath = path;
        countLogFiles();
    }
}

std::ostream* LogFile::getStream() const
{
    const sys::StackTrack track("getStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    std::ostream* const stream = unlockedGetStream();
    if (stream == ownedOutStream.get()) {
        ownedOutStream->share();
    }
    return stream;
}

void LogFile::setStream(std::ios& stream)
{
    const sys::StackTrack track("setStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto* const output = dynamic_cast<std::ostream*>(&stream);
    if (output == nullptr) {
        throw std::invalid_argument("Supplied std::ios is not a std::ostream.");
    }
    const StateHolder holder(stateSync.acquire());
    unlockedClose();
    outputStream = output;
}

std::size_t LogFile::getMaxFileSize() const
{
    const StateHolder holder(stateSync.acquire());
    return maxFileSize;
}

void LogFile::setMaxFileSize(std::size_t size)
{
    const StateHolder holder(stateSync.acquire());
    maxFileSize = size;
}

std::size_t LogFile::getMaxNumberOfFiles() const
{
    const StateHolder holder(stateSync.acquire());
    return maxFiles;
}

void LogFile::setMaxNumberOfFiles(std::size_t number)
{
    const sys::StackTrack track("setMaxNumberOfFiles()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const StateHolder holder(stateSync.acquire());
    maxFiles = number;
    if (number != 0 && numFiles > number) {
        // Without a path the count is that of the last one, whose files are none of ours any more.
        if (!outputPath.empty()) {
            removeFiles(number, numFiles - 1);
        }
        numFiles = number;
    }
}

bool LogFile::is_open() const
{
    const StateHolder holder(stateSync.acquire());
    return outputStream != nullptr && !outputStream->fail();
}

bool LogFile::is_valid() const
{
    const StateHolder holder(stateSync.acquire());
    return outputStream != nullptr && (outputPath.empty() || ownedOutStream != nullptr);
}

bool LogFile::is_reserved() const
{
    const StateHolder holder(stateSync.acquire());
    return outputStream != nullptr && ownedOutStream == nullptr;
}

void LogFile::log(const String& msg)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    LineText line;
    line.append(msg);
    endLine(line);
    logLine(line.view());
}

void LogFile::logLine(std::string_view line)
{
    const StateHolder holder(stateSync.acquire());
    std::ostream* stream = unlockedGetStream();
    if (!unlockedTake(*stream, line)) {
        // Refused now or before: the record survives here, and the next one tries the same again.
        rescue(line);
        stream = &fallbackStream();
    }

    if (maxFileSize != 0 && hasReachedLimit(*stream)) {
        switchFile();
    }
}

bool LogFile::hasReachedLimit(std::ostream& stream) const
{
    if (&stream == ownedOutStream.get()) {
        return ownedOutStream->hasReached(maxFileSize);
    }
    // A position that cannot be told counts as very large. With the output on a failed file that is
    // how the file gets another chance: it is moved away and opened anew.
    return static_cast<std::size_t>(std::streamoff(stream.tellp())) >= maxFileSize;
}

bool LogFile::unlockedTake(std::ostream& stream, std::string_view line) const
{
    if (&stream != ownedOutStream.get()) {
        return take(stream, line);
    }
    try {
        return ownedOutStream->append(line);
    } catch (const std::ios_base::failure&) {
        return false;
    }
}

bool LogFile::begin(const String& text) const
{
    const StateHolder holder(stateSync.acquire());
    return unlockedTake(*unlockedGetStream(), text);
}

void LogFile::open() const
{
    const StateHolder holder(stateSync.acquire());
    unlockedGetStream();
}

void LogFile::getCurrentPath(String& path, bool deep) const
{
    const StateHolder holder(stateSync.acquire());
    unlockedGetCurrentPath(path, deep);
}

void LogFile::close() const
{
    const StateHolder holder(stateSync.acquire());
    unlockedClose();
}

bool LogFile::revertStream() const
{
    const StateHolder holder(stateSync.acquire());
    return unlockedRevertStream();
}

std::ostream* LogFile::unlockedGetStream() const
{
    if (outputStream == nullptr) {
        if (outputPath.empty()) {
            outputStream = &fallbackStream();
        } else {
            unlockedOpen();
        }
    }
    return outputStream;
}

void LogFile::unlockedOpen() const
{
    const sys::StackTrack track("unlockedGetStream()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    createDirectory(outputPath);
    checkCreatable();

    std::unique_ptr<AppendFile> file;
    try {
        file = std::make_unique<AppendFile>();
        file->openAtEnd(outputPath);
    } catch (const std::bad_alloc&) {
        outputPath.clear();
        throw;
    }
    if (!*file) {
        const sys::system_error error;
        outputPath.clear();
        throw error;
    }
    ownedOutStream = std::move(file);
    outputStream = ownedOutStream.get();
}

void LogFile::checkCreatable() const
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

void LogFile::unlockedClose() const
{
    outputPath.clear();
    outputStream = nullptr;
    ownedOutStream.reset();
}

void LogFile::unlockedGetCurrentPath(String& path, bool deep) const
{
    if (!outputPath.empty()) {
        // A deep copy shares nothing with ours, also where texts are shared until they change.
        // NOLINTNEXTLINE(bugprone-branch-clone)
        if (deep) {
            path = String(outputPath.data(), outputPath.size());
        } else {
            path = outputPath;
        }
        return;
    }
    if (outputStream == nullptr) {
        path = "<not set>";
        return;
    }
    for (const LogStreamRec& standard : STD_LOG_STREAMS) {
        if (standard.addr == outputStream) {
            path = standard.name;
            return;
        }
    }
    path = "<user assigned stream>";
}

bool LogFile::unlockedRevertStream() const
{
    if (outputStream == &fallbackStream()) {
        return false;
    }
    unlockedClose();
    outputStream = &fallbackStream();
    return true;
}

String LogFile::oldFile(std::size_t number) const
{
    return outputPath + '.' + std::to_string(number);
}

void LogFile::countLogFiles()
{
    numFiles = 0;
    // The path is a literal text; only the number behind it is a pattern.
    RX_String pattern = RX_Filespec(toRX(outputPath), RX_Filespec::DONTCARE, 0).quoted();
    pattern += RX_String(".<->", RX_String::NPOS);
    RX_FilespecIterator files(RX_Filespec(pattern, RX_Filespec::DONTCARE, 1), 1);
    while (files.next() != 0) {
        ++numFiles;
        const RX_String& name = files.filespec();
        FileTrace::tell(__LINE__, "countLogFiles", "Found file [",
                        std::string_view(name.data(), name.length()), "]");
    }
}

void LogFile::removeFiles(std::size_t from, std::size_t to)
{
    for (std::size_t number = from; number <= to; ++number) {
        const String name = oldFile(number);
        FileTrace::tell(__LINE__, "removeFiles", "Removing file [", name, "] ...");
        if (std::remove(name.c_str()) == -1) {
            FileTrace::tell(__LINE__, "removeFiles", "Could not remove file [", name, "]");
        }
    }
}

void LogFile::switchFile()
{
    if (outputPath.empty()) {
        return;
    }
    FileTrace::tell(__LINE__, "switchFile", "Switching log file [", outputPath, "] ...");
    try {
        if (dynamic_cast<std::ofstream*>(outputStream) == nullptr) {
            throw std::invalid_argument("Current log stream is not a std::ofstream.");
        }
        AppendFile* const file = ownedOutStream.get();
        file->close();
        FileTrace::tell(__LINE__, "switchFile", "numFiles=", numFiles, " maxFiles=", maxFiles);
        makeRoom();
        shiftFiles();
        move(outputPath, oldFile(0));
        file->openAtEnd(outputPath);
        if (!file->is_open()) {
            const int error = errno;
            throw sys::system_error(error, "Failed to open log file [" + outputPath + "]"
                                               + sys::sys_err_string(error));
        }
    } catch (const std::exception& exc) {
        // The line in hand is written: no record fails because its file could not be rotated.
        FileTrace::tell(__LINE__, "switchFile", "ERROR: ", exc.what());
        unlockedRevertStream();
    }
}

void LogFile::makeRoom()
{
    if (maxFiles == 0 || numFiles < maxFiles) {
        ++numFiles;
        return;
    }
    const String oldest = oldFile(numFiles - 1);
    FileTrace::tell(__LINE__, "switchFile", "Removing [", oldest, "]");
    if (std::remove(oldest.c_str()) == -1) {
        const int error = errno;
        FileTrace::tell(__LINE__, "switchFile", "Failed to remove [", oldest,
                        "]: ", sys::sys_err_string(error));
    }
}

void LogFile::shiftFiles()
{
    for (std::size_t i = numFiles - 1; i >= 1; --i) {
        move(oldFile(i - 1), oldFile(i));
    }
}

void LogFile::move(const String& from, const String& to)
{
    FileTrace::tell(__LINE__, "switchFile", "Moving [", from, "] to [", to, "]");
    if (std::rename(from.c_str(), to.c_str()) == -1) {
        const int error = errno;
        throw sys::system_error(error, "Failed to move old log files: " + sys::sys_err_string(error));
    }
}

}
