#include "Reader.hpp"

#include <support/Errors.hpp>
#include <support/Input.hpp>

#include <cerrno>
#include <poll.h>
#include <sys/stat.h>

namespace nimlog {

namespace {

constexpr std::size_t CHUNK = 256UL * 1024;

}

Reader::Reader(const std::string& logPath, RecordSplitter& recordSplitter,
               std::function<void(const std::string&)> warnings)
    : path(logPath), splitter(recordSplitter), warn(std::move(warnings)), files(logPath, warn)
{
}

void Reader::open()
{
    files.scan();
    if (!files.hasNext()) {
        errno = ENOENT;
        throw nimtools::cannotRead(path);
    }
}

bool Reader::readNext(const std::function<void()>& idle)
{
    for (;;) {
        if (!isReading && !nextFile()) {
            splitter.flush();
            return false;
        }
        isReading = true;
        waitForInput(idle);
        if (readChunk()) {
            return true;
        }
        endFile();
        isReading = false;
    }
}

/** Advances to the next file. Returns false if there is none. */
bool Reader::nextFile()
{
    readBytes.clear();
    return files.next();
}

void Reader::endFile()
{
    endLine();
    try {
        files.finishCurrent();
    } catch (const nimtools::Failure& failure) {
        // A damaged old file does not prevent newer ones from being read.
        damaged = true;
        warn(failure.what());
    }
}

/** Ends the last line of the current file, if that has no newline. */
void Reader::endLine()
{
    splitter.endFile();
    watchLeading();
}

void Reader::watchLeading()
{
    if (leading.empty() && splitter.hasLeading()) {
        leading = files.currentName();
    }
}

/** Flushes the output if standard input is idle: a reader may be waiting for it. */
void Reader::waitForInput(const std::function<void()>& idle)
{
    pollfd polled = {STDIN_FILENO, POLLIN, 0};
    if (path == nimtools::STANDARD_INPUT && poll(&polled, 1, static_cast<int>(IDLE_TIME.count())) == 0) {
        splitter.flush();
        idle();
    }
}

/** Returns false at the end of the file. */
bool Reader::readChunk()
{
    char* const room = splitter.prepare(CHUNK);
    ssize_t count;
    do {
        count = read(files.current(), room, CHUNK);
    } while (count == -1 && errno == EINTR);
    if (count == -1) {
        throw nimtools::cannotRead(files.currentName());
    }
    readBytes.add({room, static_cast<std::size_t>(count)});
    splitter.commit(static_cast<std::size_t>(count));
    watchLeading();
    return count > 0;
}

/**
 * The log closes a file before it renames it. So if the name of the log refers to another file, the current
 * one is complete; the rest of it is read before the next file.
 */
bool Reader::followNext()
{
    if (!hasStarted) {
        hasStarted = true;
        lastChunk = std::chrono::steady_clock::now();
        files.scan();
        nextFile();
    }
    if (files.hasCurrent() && readChunk()) {
        lastChunk = std::chrono::steady_clock::now();
        return true;
    }
    if (isComplete || !files.hasCurrent() || files.isCurrentCompressed()) {
        if (files.hasCurrent()) {
            endFile();
        }
        isComplete = false;
        if (nextFile()) {
            return true;
        }
    }
    if (!files.hasNext() && (!files.hasCurrent() || isReplaced())) {
        files.scan();
    }
    if (!files.hasNext()) {
        return false;
    }
    isComplete = true;
    if (files.mayHaveMissed() && !hasWarned) {
        hasWarned = true;
        warn(path + ": a file was deleted before a newer one was found; records may be missing");
    }
    return true;
}

std::chrono::milliseconds Reader::prepareWait()
{
    const auto quiet = std::chrono::steady_clock::now() - lastChunk;
    if (splitter.hasPending() && quiet >= IDLE_TIME) {
        splitter.flush();
    }
    return splitter.hasPending() ? IDLE_TIME : MAX_WAIT;
}

void Reader::endFollowing()
{
    if (files.hasCurrent()) {
        endLine();
    }
    splitter.flush();
}

/** Returns true if the name of the log refers to another file than the current one. */
bool Reader::isReplaced() const
{
    struct stat named = {};
    struct stat current = {};
    if (stat(path.c_str(), &named) == -1 || fstat(files.current(), &current) == -1) {
        return false;
    }
    return named.st_dev != current.st_dev || named.st_ino != current.st_ino;
}

/**
 * Detects whether another program has truncated the file, and possibly refilled it. Must be called before the
 * next bytes are read. The log itself never truncates a file.
 */
void Reader::restartIfTruncated()
{
    struct stat status = {};
    const off_t at = files.hasCurrent() ? lseek(files.current(), 0, SEEK_CUR) : -1;
    if (at > 0 && fstat(files.current(), &status) == 0 && S_ISREG(status.st_mode)
        && (status.st_size < at || !readBytes.matchFile(files.current(), at))) {
        warn(files.currentName() + ": the file was truncated; reading it from the beginning");
        endFile();
        readBytes.clear();
        lseek(files.current(), 0, SEEK_SET);
    }
}

}
