#include "RequestTask.hpp"

#include "Failure.hpp"
#include "Request.hpp"
#include "Source.hpp"
#include "Token.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <memory>
#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::log::Severity;

namespace {

bool isEvery(std::uint64_t number, std::uint32_t every)
{
    return every != 0 && number % every == every - 1;
}

}

RequestTask::RequestTask(Source& origin)
    : Task(nullptr, "Request"), source(origin), counters(origin.hostCounters())
{
    ++counters.requestsWaiting;
    ++counters.requestsOpen;
}

RequestTask::~RequestTask()
{
    if (!begun) {
        --counters.requestsWaiting;
    } else if (!answered) {
        ++counters.requestsDropped;
    }
    --counters.requestsOpen;
}

void RequestTask::run()
{
    if (source.isDropping()) {
        return;
    }
    begun = true;
    --counters.requestsWaiting;
    const std::unique_ptr<nim::mt::QueueElement> element(source.queue().next(0));
    const auto* const request = dynamic_cast<const Request*>(element.get());
    if (request == nullptr) {
        answered = true;
        return;
    }
    ++counters.tasksRun;
    counters.recordWait(std::chrono::steady_clock::now() - request->submitted);

    if (!isCurrentToken(source.token())) {
        ++counters.tasksWithWrongToken;
    }
    try {
        answer(*request);
    } catch (...) {
        withCurrentException([this](const std::exception& exc) { fail(exc); });
    }
    answered = true;
}

void RequestTask::fail(const std::exception& exc)
{
    ++counters.tasksFailed;
    nim::log::Module& com_kor_dal_nim_log_module = source.module();
    try {
        NIM_LOG_TRAPPED(Severity_WARNING, exc, name() + " failed");
    } catch (const std::exception& failure) {
        writeError({name(), " failed: ", exc.what(), ", which cannot be logged: ", failure.what()});
    }
}

void RequestTask::answer(const Request& request)
{
    const SourceSettings settings = source.settings();
    if (isEvery(request.number, settings.failEvery)) {
        const nim::sys::StackTrack track("answer()", "RequestTask", "nimhost", __LINE__);
        throw nim::sys::system_error(EPROTO);
    }
    const Severity severity = isEvery(request.number, settings.debugEvery) ? nim::log::Severity_DEBUG
                              : request.number % 100 == 0                  ? nim::log::Severity_NOTICE
                                                                           : nim::log::Severity_INFO;
    bool passed = false;
    NIM_LOG_TO(source.module(), severity)
        << "request " << request.number << " of " << source.name() << " answered" << (passed = true, "");
    ++(passed ? counters.recordsWritten : counters.recordsFiltered);
}

}
