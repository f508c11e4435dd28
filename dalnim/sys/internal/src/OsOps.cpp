#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/TimeZone.hpp>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** Initialises the time zone when the library is loaded, before any thread uses local time. */
struct OsOpsInit
{
    OsOpsInit() noexcept
    {
        TimeZone::set();
    }
};

const OsOpsInit os_ops_init;

}

}
