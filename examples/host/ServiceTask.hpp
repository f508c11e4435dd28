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

/** What the requests of documents need. */
struct Desk
{
    PluginTable& plugins;
    Results& results;
    Counters& counters;
    const Stop& stop;
    /** What requests are answered under. */
    const com::kor::dal::nim::mem::ConstRefCntObjectRef token;
};

/** Answers one request of a document, on a worker. */
class ServiceTask : public com::kor::dal::nim::mt::Task
{
public:
    /** @param where where the result goes */
    ServiceTask(Desk& desk, DocumentRequest request, Results::Place where);
    /** A request that was not answered is dropped, and counted as such. */
    ~ServiceTask() override;

    /** Lets no exception out: a request that fails has a result that says so. */
    void run() override;

private:
    void answer();
    void fill(const com::kor::dal::nim::String& rest);

    Desk& desk;
    const DocumentRequest request;
    const Results::Place place;
    bool begun = false;
    bool filled = false;
    const std::chrono::steady_clock::time_point submitted;
};

}

#endif
