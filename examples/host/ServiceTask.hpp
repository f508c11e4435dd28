#ifndef NIMHOST_SERVICETASK_HPP
#define NIMHOST_SERVICETASK_HPP

#include "Counters.hpp"
#include "PluginTable.hpp"
#include "RequestConsumer.hpp"
#include "Results.hpp"
#include "Token.hpp"

#include <dalnim/mt/Task.hpp>

#include <chrono>

namespace nimhost {

/** The objects that tasks of document requests use. */
struct RequestEnvironment
{
    PluginTable& plugins;
    Results& results;
    Counters& counters;
    const Stop& stop;
    /** Security token of the requests. */
    const com::kor::dal::nim::mem::ConstRefCntObjectRef token;
};

/** Answers one request of a document on a worker. */
class ServiceTask : public com::kor::dal::nim::mt::Task
{
public:
    /** @param position position of its result */
    ServiceTask(RequestEnvironment& environment, DocumentRequest request, Results::Position where);
    /** Drops the request, and counts it as dropped, if it was not answered. */
    ~ServiceTask() override;

    /** Throws no exceptions: a failed request has a result with that status. */
    void run() override;

private:
    void answer();
    void fill(const com::kor::dal::nim::String& rest);

    RequestEnvironment& environment;
    const DocumentRequest request;
    const Results::Position position;
    bool begun = false;
    bool filled = false;
    const std::chrono::steady_clock::time_point submitted;
};

}

#endif
