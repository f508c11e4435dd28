#include "ServiceTask.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

ServiceTask::ServiceTask(RequestEnvironment& sharedEnvironment, DocumentRequest asked,
                         Results::Position resultPosition)
    : Task(nullptr, "Request"), environment(sharedEnvironment), request(std::move(asked)),
      position(resultPosition), submitted(std::chrono::steady_clock::now())
{
    environment.plugins.announce(request.plugin);
    ++environment.counters.requestsWaiting;
}

ServiceTask::~ServiceTask()
{
    if (!begun) {
        --environment.counters.requestsWaiting;
    }
    if (!filled) {
        ++environment.counters.requestsDropped;
        try {
            environment.results.drop(position);
        } catch (const std::exception& exc) {
            writeError({name(), ": ", exc.what()});
        }
    }
    environment.plugins.withdraw(request.plugin);
    --environment.counters.requestsOpen;
}

void ServiceTask::run()
{
    if (environment.stop.drop) {
        return;
    }
    begun = true;
    --environment.counters.requestsWaiting;
    ++environment.counters.tasksRun;
    environment.counters.recordWait(std::chrono::steady_clock::now() - submitted);
    if (!isCurrentToken(environment.token)) {
        ++environment.counters.tasksWithWrongToken;
    }
    try {
        answer();
    } catch (...) {
        writeError({name(), ": ", currentFailure()});
    }
}

void ServiceTask::answer()
{
    const Answer answer = environment.plugins.perform(request.plugin, request.call, name());
    if (!answer.failed) {
        fill(" status=\"ok\">" + escaped(answer.text) + "</result>");
        return;
    }
    ++environment.counters.tasksFailed;
    ++environment.counters.documentRequestsFailed;
    fill(" status=\"failed\""
         + (answer.error ? " error=\"" + std::to_string(*answer.error) + "\"" : std::string()) + ">"
         + escaped(answer.text) + "</result>");
}

void ServiceTask::fill(const String& rest)
{
    environment.results.fill(position, rest);
    filled = true;
}

}
