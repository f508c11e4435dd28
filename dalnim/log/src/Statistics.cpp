#include <dalnim/dalbase.hpp>

#include <dalnim/log/Statistics.hpp>

#include <dalnim/log/src/RecordOptions.hpp>

namespace com::kor::dal::nim::log {

void Statistics::enable() noexcept
{
    RecordOptions::set(RecordOptions::STATISTICS, true);
}

bool Statistics::isEnabled() noexcept
{
    return RecordOptions::has(RecordOptions::STATISTICS);
}

}
