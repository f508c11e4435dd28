#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/EvidenceLog.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/log/src/DateTimeText.hpp>
#include <dalnim/log/src/PrefixFormat.hpp>
#include <dalnim/nsdefs.hpp>
#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace com::kor::dal::nim::log {

using sys::internal::EvidenceOutput;
using sys::internal::SafeText;

std::atomic<const LogOutput*> EvidenceLog::watched;
std::atomic<const Write*> EvidenceLog::logger;

namespace {

constexpr std::size_t NAME_SIZE = 256;

// Written under InitLock before `logger` is set, and read afterwards.
char host_name[NAME_SIZE];
char process_name[NAME_SIZE];
/** Local time minus UTC, in seconds, when reports were installed. */
long seconds_east;

void copyName(char (&to)[NAME_SIZE], std::string_view name) noexcept
{
    const std::size_t length = std::min(name.size(), NAME_SIZE - 1);
    std::memcpy(to, name.data(), length);
    to[length] = '\0';
}

/** Returns the time in the form of the logger. */
DateTimeText dateAndTime(TimeFormat format, const std::timespec& when) noexcept
{
    constexpr long NANOSECONDS_PER_MICROSECOND = 1000;
    if (format == TimeFormat_LOCAL) {
        const bool isLocal = __atomic_load_n(&LOG_LOCALTIME, __ATOMIC_RELAXED);
        return DateTimeText(when.tv_sec, isLocal ? &seconds_east : nullptr);
    }
    return DateTimeText(format, when.tv_sec,
                        static_cast<unsigned int>(when.tv_nsec / NANOSECONDS_PER_MICROSECOND), seconds_east);
}

}

/** Registers the functions when the library is loaded. */
struct EvidenceLog::Registration
{
    Registration() noexcept
    {
        static const EvidenceOutput::LogFormat format = {appendPrefix, escapes, publish};
        EvidenceOutput::logFormat.store(&format, std::memory_order_release);
    }
};

const EvidenceLog::Registration EvidenceLog::registration;

void EvidenceLog::unwatch(const LogOutput& output) noexcept
{
    if (isWatched(output)) {
        watched.store(nullptr, std::memory_order_relaxed);
        EvidenceOutput::setLogFile(-1);
    }
}

/** Stores the fields of the prefix that signal handlers cannot determine, once. */
void EvidenceLog::prepare(const Write& write)
{
    // Before InitLock is acquired: these acquire the lock of the time zone, and perhaps that of the linker.
    const std::string_view host = sys::internal::host_name_text();
    const std::string_view process = sys::internal::process_name_text();
    std::tm local = {};
    sys::System::localtime(local, std::time(nullptr));
    const sys::InitLock lock(true);
    // Relaxed: InitLock orders the load after the store of another thread.
    if (logger.load(std::memory_order_relaxed) == nullptr) {
        qv::perturb();
        copyName(host_name, host);
        copyName(process_name, process);
        seconds_east = local.tm_gmtoff;
        // Releases these to handlers on any thread, which acquire them by their first load.
        logger.store(&write, std::memory_order_release);
    }
}

void EvidenceLog::publish()
{
    auto* const write = dynamic_cast<Write*>(&GET_NIM_LOG_LOGGER_VAR());
    if (write == nullptr) {
        return;
    }
    prepare(*write);
    write->publishOutput();
}

bool EvidenceLog::escapes() noexcept
{
    const Write* const write = logger.load(std::memory_order_acquire);
    return write != nullptr && write->escapesControls.load(std::memory_order_relaxed);
}

void EvidenceLog::appendPrefix(SafeText& text, const EvidenceOutput::Record& record,
                               const std::timespec& when, ThreadID_t tid) noexcept
{
    const Write* const write = logger.load(std::memory_order_acquire);
    const unsigned int format = write != nullptr ? write->prefixFormat.load(std::memory_order_relaxed)
                                                 : PrefixFormat::pack(Mask_ALL, TimeFormat_LOCAL);
    const unsigned int mask = PrefixFormat::mask(format);
    bool isFirst = true;
    const auto field = [&](unsigned int bit) {
        if ((mask & bit) == 0) {
            return false;
        }
        text << (isFirst ? "" : SEPARATOR);
        isFirst = false;
        return true;
    };
    if (field(Mask_DATETIME)) {
        const DateTimeText date = dateAndTime(PrefixFormat::timeFormat(format), when);
        text << date.view();
    }
    if (field(Mask_HOSTNAME)) {
        text << host_name;
    }
    if (field(Mask_PROCESSNAME)) {
        text << process_name;
    }
    if (field(Mask_PROCESSID)) {
        text << ::getpid();
    }
    if (field(Mask_THREADID)) {
        text << tid;
    }
    if (field(Mask_MODULENAME)) {
        text << nim::NAMESPACE_NAME;
    }
    if (field(Mask_SEVERITY)) {
        text << record.severity;
    }
    if (field(Mask_SOURCEFILE)) {
        text << record.source;
    }
    if (field(Mask_LINENUMBER)) {
        text << record.line;
    }
    text << TERMINATOR;
}

}
