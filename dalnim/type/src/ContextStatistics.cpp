#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContextStatistics.hpp>

#include <dalnim/Primitives.hpp>
#include <dalnim/type/src/ContextCounters.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/thread.h>

namespace com::kor::dal::nim::type {

ContextCounters::Stripe ContextCounters::stripes[STRIPES];

void ContextStatistics::enable() noexcept
{
    ContextCounters::isEnabled.store(true, std::memory_order_relaxed);
}

bool ContextStatistics::isEnabled() noexcept
{
    return ContextCounters::isEnabled.load(std::memory_order_relaxed);
}

void ContextCounters::increase(Counter Stripe::*counter) noexcept
{
    Stripe& own = stripes[static_cast<UInt32_t>(qv_si_thread_self()) % STRIPES];
    (own.*counter).fetch_add(1, std::memory_order_release);
}

std::uint64_t ContextCounters::sum(Counter Stripe::*counter) noexcept
{
    std::uint64_t total = 0;
    for (const Stripe& stripe : stripes) {
        total += (stripe.*counter).load(std::memory_order_acquire);
    }
    return total;
}

/** Reads later events before earlier ones, so that they never exceed them. */
ContextStatistics ContextCounters::read() noexcept
{
    ContextStatistics statistics;
    const std::uint64_t ended = sum(&Stripe::ended);
    qv::perturb();
    statistics.attached = sum(&Stripe::attached);
    qv::perturb();
    statistics.duplicated = sum(&Stripe::duplicated);
    statistics.made = sum(&Stripe::made);
    statistics.alive = statistics.made > ended ? statistics.made - ended : 0;
    return statistics;
}

}
