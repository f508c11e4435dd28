#ifndef NIMHOST_SOURCE_HPP
#define NIMHOST_SOURCE_HPP

#include "Configuration.hpp"
#include "Counters.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/ThreadPool.hpp>

#include <chrono>
#include <mutex>
#include <string>

namespace nimhost {

/**
 * Reads requests and submits them to the pool, with a security token of its own, until the run ends. Its
 * queue holds the unanswered requests, and limits their number.
 */
class Source : public com::kor::dal::nim::mt::Runnable
{
public:
    Source(std::string name, const SourceSettings& settings, com::kor::dal::nim::mt::ThreadPool& pool,
           Counters& counters, Stop& stop);

    /** Runs on its own thread. Throws after the configured number of requests. */
    void run() override;
    /** Completes the queue. Requests that are in it are still answered. */
    void complete();
    /** Drops and counts the remaining requests. Requires that no task of this source remains. */
    void dropRemaining();
    /** Returns true if requests that no worker has started are dropped. */
    bool isDropping() const;

    /** Sets the settings, which apply from the next request on, except the size of the queue. Thread-safe. */
    void configure(const SourceSettings& settings);
    SourceSettings settings() const;

    const std::string& name() const
    {
        return sourceName;
    }
    com::kor::dal::nim::mt::Queue& queue()
    {
        return requests;
    }
    com::kor::dal::nim::log::Module& module()
    {
        return logModule;
    }
    Counters& hostCounters()
    {
        return counters;
    }
    const com::kor::dal::nim::mem::ConstRefCntObjectRef& token() const
    {
        return sourceToken;
    }

private:
    bool submit(std::uint64_t number);
    void pace(std::chrono::steady_clock::time_point& next) const;

    const std::string sourceName;
    mutable std::mutex settingsLock;
    SourceSettings sourceSettings;
    com::kor::dal::nim::mt::ThreadPool& pool;
    Counters& counters;
    Stop& stop;
    com::kor::dal::nim::log::Module& logModule;
    const com::kor::dal::nim::mem::ConstRefCntObjectRef sourceToken;
    com::kor::dal::nim::mt::Queue requests;
};

}

#endif
