#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/TimeZone.hpp>

#include <qv/pmx/time.h>

namespace com::kor::dal::nim::sys::internal {

namespace {

// Nothing else refers to the object's source, which programs would otherwise leave in the static library.
[[gnu::used]] constexpr const OsOpsInit* LINKED_INIT = &os_ops_init;

}

ForkSafeMutex TimeZone::mutex(false);

void TimeZone::set() noexcept
{
    const ForkSafeLock lock(mutex);
    tzset();
}

qv_err_t TimeZone::utcTime(std::time_t time, std::tm& result) noexcept
{
    constexpr std::time_t END_OF_9999 = 253402300800;
    if (time >= 0 && time < END_OF_9999) {
        return qv_si_gmtime(time, &result);
    }
    const ForkSafeLock lock(mutex);
    return qv_si_gmtime(time, &result);
}

qv_err_t TimeZone::localTime(std::time_t time, std::tm& result) noexcept
{
    const ForkSafeLock lock(mutex);
    return qv_si_localtime(time, &result);
}

std::size_t TimeZone::format(char* text, std::size_t size, const char* format, const std::tm& time) noexcept
{
    const ForkSafeLock lock(mutex);
    return std::strftime(text, size, format, &time);
}

}
