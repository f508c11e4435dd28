#ifndef NIMHOST_REQUESTTASK_HPP
#define NIMHOST_REQUESTTASK_HPP

#include "Counters.hpp"

#include <dalnim/mt/Task.hpp>

namespace nimhost {

class Request;
class Source;

/** Answers the oldest request of a source, on a worker, with the security token of the source. */
class RequestTask : public com::kor::dal::nim::mt::Task
{
public:
    explicit RequestTask(Source& source);
    /**
     * Counts a request as dropped if it was started but not answered. One that was not started stays in the
     * queue.
     */
    ~RequestTask() override;

    /** Throws no exceptions: a failed request is counted and logged. */
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
