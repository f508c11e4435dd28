#include "Reader.hpp"

#include "Changes.hpp"

#include <support/Errors.hpp>
#include <support/Input.hpp>

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/stat.h>

namespace nimlog {

namespace {

constexpr std::size_t PIECE = 256UL * 1024;

/** A record is taken for complete when nothing has followed it for so long. */
constexpr std::chrono::milliseconds QUIET(100);
/** Nothing is waiting for the time to pass. */
constexpr std::chrono::milliseconds LONG(10000);

}

Reader::Reader(const std::string& logPath, RecordSplitter& recordSplitter,
               std::function<void(const std::string&)> complaints)
    : path(logPath), splitter(recordSplitter), complain(std::move(complaints)), files(logPath, complain)
{
}

void Reader::readAll(const std::function<void()>& idle)
{
    files.look();
    if (!files.hasNext()) {
        errno = ENOENT;
        throw nimtools::cannotRead(path);
    }
    while (goOn()) {
        do {
            awaitPiece(idle);
        } while (readPiece());
        endFile();
    }
    splitter.flush();
}

/** Goes on to the next file; returns false if there is none. */
bool Reader::goOn()
{
    readBytes.clear();
    return files.next();
}

void Reader::endFile()
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

/** Somebody may be waiting for what a pipe has brought so far. */
void Reader::awaitPiece(const std::function<void()>& idle)
{
    pollfd waited = {STDIN_FILENO, POLLIN, 0};
    if (path == nimtools::STANDARD_INPUT && poll(&waited, 1, static_cast<int>(QUIET.count())) == 0) {
        splitter.flush();
        idle();
    }
}

/** False at the end of the file. */
bool Reader::readPiece()
{
    char* const room = splitter.prepare(PIECE);
    ssize_t count;
    do {
        count = read(files.current(), room, PIECE);
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
 * The file in hand is complete when another one stands under the name of the log, since the log closes a
 * file before it moves it: what it has then is read before the next one is begun.
 */
void Reader::follow(const std::function<void()>& idle)
{
    Changes changes(path);
    bool isComplete = false;
    bool toldOfMissed = false;
    auto lastPiece = std::chrono::steady_clock::now();
    files.look();
    goOn();
    while (!changes.isStopped()) {
        if (files.hasCurrent() && readPiece()) {
            lastPiece = std::chrono::steady_clock::now();
            continue;
        }
        if (isComplete || !files.hasCurrent()) {
            if (files.hasCurrent()) {
                endFile();
            }
            isComplete = false;
            if (goOn()) {
                continue;
            }
        }
        if (!files.hasNext() && (!files.hasCurrent() || isReplaced())) {
            files.look();
        }
        if (files.hasNext()) {
            isComplete = true;
            if (files.mayHaveMissed() && !toldOfMissed) {
                toldOfMissed = true;
                complain(path + ": a file was removed before a newer one was found; records may be missing");
            }
            continue;
        }
        const auto quiet = std::chrono::steady_clock::now() - lastPiece;
        if (splitter.isWaiting() && quiet >= QUIET) {
            splitter.flush();
        }
        idle();
        changes.wait(splitter.isWaiting() ? QUIET : LONG);
        startAgainIfCut();
    }
    if (files.hasCurrent()) {
        endFile();
    }
    splitter.flush();
}

/** Whether the name of the log stands for another file than that in hand. */
bool Reader::isReplaced() const
{
    struct stat named = {};
    struct stat inHand = {};
    if (path == nimtools::STANDARD_INPUT || stat(path.c_str(), &named) == -1
        || fstat(files.current(), &inHand) == -1) {
        return false;
    }
    return named.st_dev != inHand.st_dev || named.st_ino != inHand.st_ino;
}

/**
 * Another program may have truncated the file; the log itself does not. It may also have refilled it by now,
 * so this must come before the next bytes are read.
 */
void Reader::startAgainIfCut()
{
    struct stat status = {};
    const off_t at = files.hasCurrent() ? lseek(files.current(), 0, SEEK_CUR) : -1;
    if (at > 0 && fstat(files.current(), &status) == 0 && S_ISREG(status.st_mode)
        && (status.st_size < at || !readBytes.areIn(files.current(), at))) {
        complain(files.currentName() + ": the file was cut; reading it from its beginning");
        endFile();
        readBytes.clear();
        lseek(files.current(), 0, SEEK_SET);
    }
}

}
