#include <dalnim/dalbase.hpp>

#include <dalnim/sys/UniqueID.hpp>

#include <dalnim/sys/System.hpp>
#include <qv/pmx/atomic.h>

#include <pthread.h>

namespace com::kor::dal::nim::sys {

namespace {

/** The bases of the series. Written in a pthread_once(), which orders that before every read. */
UInt32_t _uid32 = 0;
UInt64_t _uid64 = 0;
/** Number of IDs so far. Incremented relaxed: an ID is unique by the increment alone and orders nothing else.
 */
si_atomic_t _incr32 = 0;
si_atomic_t _incr64 = 0;
pthread_once_t once = PTHREAD_ONCE_INIT;

void init_bases()
{
    const auto pid = static_cast<UInt32_t>(System::procId());

    // _uid64 is still 0 here, so this is the process ID.
    const UInt32_t multiplier = _uid64 != 0 ? static_cast<UInt32_t>(_uid64) : pid;
    _uid32 = static_cast<UInt32_t>(System::time()) * multiplier;
    _uid64 = static_cast<UInt64_t>(System::time()) * (_uid32 != 0 ? _uid32 : pid);
}

}

UInt32_t UniqueID::nextUid32() noexcept
{
    pthread_once(&once, init_bases);
    return _uid32 + static_cast<UInt32_t>(qv_si_atomic_increment(&_incr32));
}

UInt64_t UniqueID::nextUid64() noexcept
{
    pthread_once(&once, init_bases);
    return _uid64 + static_cast<UInt64_t>(static_cast<si_int32_t>(qv_si_atomic_increment(&_incr64)));
}

}
