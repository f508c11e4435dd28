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
 * Reads requests and submits them to the pool, under a token of its own, until it is told to stop. The
 * requests that are under way stand in its queue, which bounds their number.
 */
class Source : public com::kor::dal::nim::mt::Runnable
{
public:
    Source(std::string name, const SourceSettings& settings, com::kor::dal::nim::mt::ThreadPool& pool,
           Counters& counters, Stop& stop);

    /** Runs on a thread of its own. Throws when it breaks down. */
    void run() override;
    /** Ends the queue: those that are in it are answered. */
    void complete();
    /** Drops and counts the requests that are left, once no task of this source is left. */
    void dropLeft();
    /** Whether requests that no worker has begun are dropped. */
    bool isDropping() const;

    /** Takes effect at the next request, but for the size of the queue; any thread may call it. */
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
