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
    /** What requests are answered under. */
    const com::kor::dal::nim::mem::ConstRefCntObjectRef token;
};

/** Answers one request of a document, on a worker. */
class ServiceTask : public com::kor::dal::nim::mt::Task
{
public:
    /** @param where opens the element of the result: document and number */
    ServiceTask(Desk& desk, DocumentRequest request, com::kor::dal::nim::String where);
    /** A task that was dropped leaves its place to nobody. */
    ~ServiceTask() override;

    /** Lets nothing out: a request that fails has a result that says so. */
    void run() override;

private:
    com::kor::dal::nim::String answer();
    void fill(const com::kor::dal::nim::String& element);

    Desk& desk;
    const DocumentRequest request;
    const com::kor::dal::nim::String begin;
    const Results::Place place;
    bool filled = false;
    const std::chrono::steady_clock::time_point submitted;
};

}

#endif
