#ifndef NIMHOST_REQUESTTASK_HPP
#define NIMHOST_REQUESTTASK_HPP

#include "Counters.hpp"

#include <dalnim/mt/Task.hpp>

namespace nimhost {

class Request;
class Source;

/** Answers the oldest request of a source, on a worker, under the source's token. */
class RequestTask : public com::kor::dal::nim::mt::Task
{
public:
    explicit RequestTask(Source& source);
    /** A request that a worker has begun and not answered counts as dropped; others stay with the source. */
    ~RequestTask() override;

    /** Lets no exception out: a failed request is counted and logged. */
    void run() override;

private:
    void answer(const Request& request);
    void fail(const std::exception& exc);

    Source& source;
    Counters& counters;
    bool begun = false;
    bool answered = false;
};

}

#endif
