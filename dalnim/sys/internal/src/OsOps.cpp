#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/TimeZone.hpp>

namespace com::kor::dal::nim::sys::internal {

struct OsOpsInit
{
    OsOpsInit() noexcept
    {
        TimeZone::set();
    }
};

const OsOpsInit os_ops_init;

}
