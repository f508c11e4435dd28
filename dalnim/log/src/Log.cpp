#include <dalnim/dalbase.hpp>

#include <dalnim/log/Log.hpp>

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <charconv>
#include <cstring>
#include <exception>
#include <iterator>
#include <limits>
#include <ostream>
#include <pthread.h>
#include <string_view>
#include <type_traits>
#include <utility>

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
                text += SEPARATOR[0];
            }
            first = false;
            put(field());
        }
        return *this;
    }

    String finish()
    {
        text.append(TERMINATOR, TERMINATOR_LENGTH);
        return std::move(text);
    }

private:
    static constexpr std::size_t USUAL_LENGTH = 512;

    void put(std::string_view field)
    {
        text.append(field);
    }
    template <class Number, class = std::enable_if_t<std::is_integral_v<Number>>>
    void put(Number number)
    {
        char digits[std::numeric_limits<Number>::digits10 + 2];
        const std::to_chars_result end = std::to_chars(std::begin(digits), std::end(digits), number);
        text.append(digits, static_cast<std::size_t>(end.ptr - digits));
    }

    const unsigned int mask;
    bool first;
    String text;
};

/** The name behind the last "/" of a path. */
std::string_view baseName(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
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
    log(format(mod, rec).append(rec.text()));
}

String Log::format(const Module& mod, const Header& rec)
{
    return Prefix(getOutputMask())
        .add(Mask_DATETIME, [&] { return getDateTime(rec.getWhen()); })
        .add(Mask_HOSTNAME, [] { return sys::System::hostname(); })
        .add(Mask_PROCESSNAME, [] { return getProcessName(); })
        .add(Mask_PROCESSID, [] { return getProcessId(); })
        .add(Mask_THREADID, [&] { return rec.getThread(); })
        .add(Mask_MODULENAME, [&]() -> const String& { return mod.getName(); })
        .add(Mask_SEVERITY, [&] { return rec.getSeverityName(); })
        .add(Mask_SOURCEFILE, [&] { return baseName(rec.getFile()); })
        .add(Mask_LINENUMBER, [&] { return rec.getLine(); })
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
