#include <qv/pmx/src/standard_error.hpp>

#include <atomic>

#include <fcntl.h>
#include <unistd.h>

namespace {

/**
 * Initialised by the compiler: static constructors of any source may write a message. Relaxed: the value is
 * all that is passed on.
 */
std::atomic<bool> counts_as_closed{false};

const struct CheckAtLoad
{
    CheckAtLoad() noexcept
    {
        qv::recheckStandardError();
    }
} check_at_load;

}

int qv::standardError() noexcept
{
    return counts_as_closed.load(std::memory_order_relaxed) ? -1 : STDERR_FILENO;
}

void qv::recheckStandardError() noexcept
{
    counts_as_closed.store(fcntl(STDERR_FILENO, F_GETFD) == -1, std::memory_order_relaxed);
}
