#ifndef DALNIM_SYS_LOADERSTATISTICS_HPP
#define DALNIM_SYS_LOADERSTATISTICS_HPP

#include <cstdint>

namespace com::kor::dal::nim::sys {

/** What the dynamic loader has done in this process. DynLoaderMgr::statistics() returns it. */
struct LoaderStatistics
{
    /** Libraries loaded. One that is loaded again after it was unloaded counts again. */
    std::uint64_t loaded = 0;
    /** Loads that failed. */
    std::uint64_t failedLoads = 0;
    /** Libraries unloaded. */
    std::uint64_t unloaded = 0;
    /** Unloads that failed. */
    std::uint64_t failedUnloads = 0;
};

}

#endif
