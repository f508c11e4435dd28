#include "Fault.hpp"

#include <cstddef>

namespace faults {

namespace {

/** The fault that is armed for one call on one thread. */
struct Plan
{
    int error;
    unsigned int first;
    unsigned int count;
    unsigned int calls;
    unsigned int failed;
    unsigned int uncounted;
};

// Without a constructor: memory is allocated before the first constructor and after the last destructor.
thread_local Plan plans[static_cast<std::size_t>(Call::COUNT)];

Plan& planOf(Call call) noexcept
{
    return plans[static_cast<std::size_t>(call)];
}

}

Fault::Fault(Call call_to_fail, int error, unsigned int first, unsigned int count) noexcept
    : call(call_to_fail)
{
    Plan& plan = planOf(call);
    plan.first = first;
    plan.count = count;
    plan.calls = 0;
    plan.failed = 0;
    plan.error = error;
}

Fault::~Fault()
{
    disarm();
}

void Fault::disarm() noexcept
{
    planOf(call).error = 0;
}

unsigned int Fault::calls() const noexcept
{
    return planOf(call).calls;
}

unsigned int Fault::failed() const noexcept
{
    return planOf(call).failed;
}

int nextError(Call call) noexcept
{
    Plan& plan = planOf(call);
    if (plan.error == 0 || plan.uncounted != 0) {
        return 0;
    }
    const unsigned int number = ++plan.calls;
    if (number < plan.first || (plan.count != Fault::EVER && number - plan.first >= plan.count)) {
        return 0;
    }
    ++plan.failed;
    return plan.error;
}

Uncounted::Uncounted(Call uncounted_call) noexcept : call(uncounted_call)
{
    ++planOf(call).uncounted;
}

Uncounted::~Uncounted()
{
    --planOf(call).uncounted;
}

}
