#include "Source.hpp"

#include "Request.hpp"
#include "RequestTask.hpp"
#include "Token.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>
#include <utility>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

/** Maximum wait, so that the end of the run is noticed. */
constexpr std::chrono::milliseconds MAX_WAIT(100);

}

Source::Source(std::string name, const SourceSettings& settings, nim::mt::ThreadPool& sharedPool,
               Counters& sharedCounters, Stop& sharedStop)
    : sourceName(std::move(name)), sourceSettings(settings), pool(sharedPool), counters(sharedCounters),
      stop(sharedStop),
      logModule(nim::log::Module::getInstance("nimhost." + sourceName, nim::log::GET_NIM_LOG_LOGGER_VAR())),
      sourceToken(new Token), requests(settings.queue)
{
}

void Source::configure(const SourceSettings& settings)
{
    const std::lock_guard<std::mutex> guard(settingsLock);
    sourceSettings = settings;
}

SourceSettings Source::settings() const
{
    const std::lock_guard<std::mutex> guard(settingsLock);
    return sourceSettings;
}

void Source::run()
{
    const nim::sys::StackTrack track("run()", "Source", "nimhost", __LINE__);
    const TokenScope scope(sourceToken);

    auto next = std::chrono::steady_clock::now();
    for (std::uint64_t number = 0; !stop.now; ++number) {
        const std::uint32_t breakAfter = settings().breakAfter;
        if (breakAfter != 0 && number == breakAfter) {
            throw nim::sys::system_error(EPIPE, sourceName + " broke down after " + std::to_string(number)
                                                    + " requests");
        }
        if (stop.requestsLeft.fetch_sub(1) <= 0 || !submit(number)) {
            return;
        }
        pace(next);
    }
}

void Source::complete()
{
    requests.complete();
}

void Source::dropRemaining()
{
    while (const std::unique_ptr<nim::mt::QueueElement> left{requests.next(0)}) {
        ++counters.requestsDropped;
    }
}

bool Source::isDropping() const
{
    return stop.drop;
}

/** Returns false if the run ended before the queue had space; no request was read then. */
bool Source::submit(std::uint64_t number)
{
    auto task = std::make_unique<RequestTask>(*this);
    auto request = std::make_unique<Request>(number);
    while (!requests.insert(request.get(), static_cast<unsigned int>(MAX_WAIT.count()))) {
        if (stop.now) {
            ++stop.requestsLeft;
            return false;
        }
    }
    static_cast<void>(request.release());

    if (pool.add(task.get(), true, settings().block)) {
        static_cast<void>(task.release());
    } else {
        ++counters.tasksRejected;
        const std::unique_ptr<nim::mt::QueueElement> refused(requests.next(0));
    }
    return true;
}

void Source::pace(std::chrono::steady_clock::time_point& next) const
{
    const std::uint32_t perSecond = settings().rate;
    if (perSecond == 0) {
        return;
    }
    next += std::chrono::nanoseconds(1000000000 / perSecond);
    for (auto now = std::chrono::steady_clock::now(); now < next && !stop.now;
         now = std::chrono::steady_clock::now()) {
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(next - now, MAX_WAIT));
    }
}

}
