#include <dalnim/dalbase.hpp>

#include <ctime>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** Prepares the time zone at load, before any thread can ask for local time. */
struct OsOpsInit
{
    OsOpsInit() noexcept
    {
        tzset();
    }
};

const OsOpsInit os_ops_init;

}

}
