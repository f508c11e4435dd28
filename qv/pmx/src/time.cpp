#include <qv/pmx/time.h>

#include <cerrno>
#include <limits>

qv_err_t qv_si_gettime(si_timespec_t* now) noexcept
{
    timespec time;
    if (clock_gettime(CLOCK_REALTIME, &time) != 0) {
        return errno;
    }
    if (time.tv_sec > std::numeric_limits<si_int32_t>::max()) {
        *now = {std::numeric_limits<si_int32_t>::max(), 999999999};
        return EOVERFLOW;
    }
    *now = {static_cast<si_int32_t>(time.tv_sec), static_cast<si_int32_t>(time.tv_nsec)};
    return 0;
}

qv_err_t qv_si_gmtime(time_t time, struct tm* result) noexcept
{
    return gmtime_r(&time, result) != nullptr ? 0 : errno;
}

qv_err_t qv_si_localtime(time_t time, struct tm* result) noexcept
{
    return localtime_r(&time, result) != nullptr ? 0 : errno;
}

qv_err_t qv_si_nanosleep(const si_timespec_t* request, si_timespec_t* remaining)
{
    const timespec interval = {request->seconds, request->nanoseconds};
    timespec rest = {};
    const int status = clock_nanosleep(CLOCK_MONOTONIC, 0, &interval, &rest);
    if (remaining != nullptr) {
        *remaining = {static_cast<si_int32_t>(rest.tv_sec), static_cast<si_int32_t>(rest.tv_nsec)};
    }
    return status;
}
