#include "ServiceTask.hpp"

#include <dalnim/nim.hpp>

#include <iostream>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

ServiceTask::ServiceTask(Desk& sharedDesk, DocumentRequest asked, String where)
    : Task(nullptr, "Request"), desk(sharedDesk), request(std::move(asked)), begin(std::move(where)),
      place(desk.results.reserve()), submitted(std::chrono::steady_clock::now())
{
}

ServiceTask::~ServiceTask()
{
    if (!filled) {
        try {
            fill(begin + " status=\"dropped\"/>");
        } catch (const std::exception& exc) {
            std::cerr << "nimhost: " << exc.what() << std::endl;
        }
    }
}

void ServiceTask::run()
{
    --desk.counters.requestsWaiting;
    ++desk.counters.tasksRun;
    desk.counters.noteWait(std::chrono::steady_clock::now() - submitted);
    if (!isUnder(desk.token)) {
        ++desk.counters.tasksUnderForeignToken;
    }
    try {
        fill(answer());
    } catch (const std::exception& exc) {
        std::cerr << "nimhost: " << exc.what() << std::endl;
    }
}

String ServiceTask::answer()
{
    try {
        const String result = desk.plugins.perform(request.plugin, request.call);
        return begin + " status=\"ok\">" + escaped(result) + "</result>";
    } catch (const nim::sys::system_error& exc) {
        ++desk.counters.tasksFailed;
        NIM_LOG_TRAPPED(Severity_WARNING, exc, name() + " failed");
        return begin + " status=\"failed\" error=\"" + std::to_string(exc.error()) + "\">"
               + escaped(exc.what()) + "</result>";
    } catch (const std::exception& exc) {
        ++desk.counters.tasksFailed;
        NIM_LOG_TRAPPED(Severity_WARNING, exc, name() + " failed");
        return begin + " status=\"failed\">" + escaped(exc.what()) + "</result>";
    }
}

void ServiceTask::fill(const String& element)
{
    filled = true;
    desk.results.fill(place, element);
}

}
