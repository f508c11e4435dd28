#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/TimeZone.hpp>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** Prepares the time zone at load, before any thread can ask for local time. */
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
