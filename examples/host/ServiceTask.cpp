#include "ServiceTask.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <iostream>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

ServiceTask::ServiceTask(Desk& sharedDesk, DocumentRequest asked, Results::Place where)
    : Task(nullptr, "Request"), desk(sharedDesk), request(std::move(asked)), place(where),
      submitted(std::chrono::steady_clock::now())
{
    desk.plugins.expect(request.plugin);
    ++desk.counters.requestsWaiting;
}

ServiceTask::~ServiceTask()
{
    if (!begun) {
        --desk.counters.requestsWaiting;
    }
    if (!filled) {
        ++desk.counters.requestsDropped;
        try {
            desk.results.drop(place);
        } catch (const std::exception& exc) {
            std::cerr << "nimhost: " << name() << ": " << exc.what() << std::endl;
        }
    }
    desk.plugins.forget(request.plugin);
    --desk.counters.requestsOpen;
}

void ServiceTask::run()
{
    if (desk.stop.drop) {
        return;
    }
    begun = true;
    --desk.counters.requestsWaiting;
    ++desk.counters.tasksRun;
    desk.counters.noteWait(std::chrono::steady_clock::now() - submitted);
    if (!isUnder(desk.token)) {
        ++desk.counters.tasksUnderForeignToken;
    }
    try {
        answer();
    } catch (...) {
        std::cerr << "nimhost: " << name() << ": " << currentFailure() << std::endl;
    }
}

void ServiceTask::answer()
{
    const Answer answer = desk.plugins.perform(request.plugin, request.call, name());
    if (!answer.failed) {
        fill(" status=\"ok\">" + escaped(answer.text) + "</result>");
        return;
    }
    ++desk.counters.tasksFailed;
    fill(" status=\"failed\""
         + (answer.error ? " error=\"" + std::to_string(*answer.error) + "\"" : std::string()) + ">"
         + escaped(answer.text) + "</result>");
}

void ServiceTask::fill(const String& rest)
{
    desk.results.fill(place, rest);
    filled = true;
}

}
