#include <dalnim/dalbase.hpp>

#include <dalnim/log/Log.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>

#include <exception>
#include <ostream>
#include <pthread.h>
#include <string>
#include <utility>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::log {

namespace {

pthread_once_t _queue_once = PTHREAD_ONCE_INIT;
/** Serialises the records of all loggers that do not replace Log::log(). */
si_mutex_t _queue_sync;

void create_queue_sync()
{
    qv_si_mutex_init(&_queue_sync, nullptr);
}

class QueueHolder
{
public:
    QueueHolder() : exceptions(std::uncaught_exceptions())
    {
        pthread_once(&_queue_once, create_queue_sync);
        check(qv_si_mutex_lock(&_queue_sync));
    }
    ~QueueHolder() noexcept(false)
    {
        const qv_err_t status = qv_si_mutex_unlock(&_queue_sync);
        // Behind an exception that leaves this scope there is no room for a second one.
        if (std::uncaught_exceptions() == exceptions) {
            check(status);
        }
    }
    QueueHolder(const QueueHolder&) = delete;
    QueueHolder& operator=(const QueueHolder&) = delete;

private:
    static void check(qv_err_t status)
    {
        if (status != 0) {
            throw sys::system_error(status);
        }
    }

    /** How many exceptions were under way when the lock was taken. */
    const int exceptions;
};

/**
 * The fields of a prefix, with a separator between each two. Its numbers are plain decimal ones: a
 * stream would group their digits by the process's locale.
 */
class Prefix
{
public:
    explicit Prefix(unsigned int selected) : mask(selected), first(true)
    {
        text.reserve(USUAL_LENGTH);
    }

    /** Adds what `field` gives, if the mask selects it; otherwise it is not even computed. */
    template <class Field>
    Prefix& add(Mask bit, Field field)
    {
        if ((mask & bit) != 0) {
            if (!first) {
                text += SEPARATOR;
            }
            first = false;
            text += field();
        }
        return *this;
    }

    String finish()
    {
        text += TERMINATOR;
        return std::move(text);
    }

private:
    static constexpr std::size_t USUAL_LENGTH = 256;

    const unsigned int mask;
    bool first;
    String text;
};

String sourceFile(const Header& rec)
{
    const RX_Filespec spec(RX_String(rec.getFile(), RX_String::NPOS), RX_Filespec::DONTCARE, 0);
    const RX_String name = spec.basename();
    return String(name.data(), name.length());
}

}

Log::Log() noexcept = default;
Log::~Log() = default;

void Log::log(const Module& mod, const Header& rec, bool force)
{
    const sys::StackTrack track("log()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    if (!force && !isSeveritySatisfied(rec.getSeverityId())) {
        return;
    }
    const QueueHolder holder;
    const String text = rec.str();
    log(format(mod, rec) + text);
}

String Log::format(const Module& mod, const Header& rec)
{
    return Prefix(getOutputMask())
        .add(Mask_DATETIME, [&] { return getDateTime(rec.getWhen()); })
        .add(Mask_HOSTNAME, [] { return sys::System::hostname(); })
        .add(Mask_PROCESSNAME, [] { return getProcessName(); })
        .add(Mask_PROCESSID, [] { return std::to_string(getProcessId()); })
        .add(Mask_THREADID, [&] { return std::to_string(rec.getThread()); })
        .add(Mask_MODULENAME, [&]() -> const String& { return mod.getName(); })
        .add(Mask_SEVERITY, [&] { return rec.getSeverityName(); })
        .add(Mask_SOURCEFILE, [&] { return sourceFile(rec); })
        .add(Mask_LINENUMBER, [&] { return std::to_string(rec.getLine()); })
        .finish();
}

void Log::log(const String& msg)
{
    const std::size_t length = trimmedLength(msg);
    auto* const stream = dynamic_cast<std::ostream*>(getStream());
    if (stream != nullptr && !!*stream) {
        stream->write(msg.data(), static_cast<std::streamsize>(length)) << std::endl;
        return;
    }
    std::cerr << STREAM_COMPLAINT << std::endl;
    std::cerr.write(msg.data(), static_cast<std::streamsize>(length)) << std::endl;
}

void Log::switchFile() {}

}
