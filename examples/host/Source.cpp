#include "Source.hpp"

#include <dalnim/nim.hpp>

#include <iostream>
#include <thread>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::log::Severity;

namespace {

/** The longest sleep, so that the end of the run is noticed. */
constexpr std::chrono::milliseconds LONGEST_SLEEP(100);

}

Source::Source(std::string name, const SourceSettings& settings, Counters& sharedCounters, Stop& sharedStop)
    : sourceName(std::move(name)), rate(settings.rate), debugEvery(settings.debugEvery),
      counters(sharedCounters), stop(sharedStop),
      module(nim::log::Module::getInstance("nimhost." + sourceName, nim::log::GET_NIM_LOG_LOGGER_VAR()))
{
}

void Source::configure(const SourceSettings& settings)
{
    rate = settings.rate;
    debugEvery = settings.debugEvery;
}

void Source::run()
{
    auto next = std::chrono::steady_clock::now();
    for (std::uint64_t number = 0; !stop.now; ++number) {
        if (stop.recordsLeft.fetch_sub(1) <= 0) {
            return;
        }
        try {
            write(number);
        } catch (const std::exception& exc) {
            ++counters.failed;
            std::cerr << "nimhost: a record of " << sourceName << " failed: " << exc.what() << std::endl;
        }
        pace(next);
    }
}

void Source::write(std::uint64_t number)
{
    const std::uint32_t every = debugEvery;
    const Severity severity = every != 0 && number % every == every - 1 ? nim::log::Severity_DEBUG
                              : number % 100 == 0                       ? nim::log::Severity_NOTICE
                                                                        : nim::log::Severity_INFO;
    bool passed = false;
    NIM_LOG_TO(module, severity) << "request " << number << " answered in " << 17 + number % 83
                                 << " microseconds" << (passed = true, "");
    ++(passed ? counters.written : counters.refused);
}

void Source::pace(std::chrono::steady_clock::time_point& next) const
{
    const std::uint32_t perSecond = rate;
    if (perSecond == 0) {
        return;
    }
    next += std::chrono::nanoseconds(1000000000 / perSecond);
    for (auto now = std::chrono::steady_clock::now(); now < next && !stop.now;
         now = std::chrono::steady_clock::now()) {
        std::this_thread::sleep_for(
            std::min(std::chrono::duration_cast<std::chrono::nanoseconds>(next - now),
                     std::chrono::duration_cast<std::chrono::nanoseconds>(LONGEST_SLEEP)));
    }
}

}
