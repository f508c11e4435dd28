#ifndef NIMHOST_SOURCE_HPP
#define NIMHOST_SOURCE_HPP

#include "Configuration.hpp"

#include <dalnim/log/Module.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace nimhost {

/** What all sources did together. */
struct Counters
{
    std::atomic<std::uint64_t> written{0};
    std::atomic<std::uint64_t> refused{0};
    /** Records whose statement raised. */
    std::atomic<std::uint64_t> failed{0};
};

/** The end of the run, seen by all sources. */
struct Stop
{
    std::atomic<bool> now{false};
    /** How many records the sources may still write; negative when all are spoken for. */
    std::atomic<std::int64_t> recordsLeft;
};

/** Writes records under a log module of its own until it is told to stop. */
class Source
{
public:
    Source(std::string name, const SourceSettings& settings, Counters& counters, Stop& stop);

    /** Runs on the calling thread; returns when the host stops or no record is left to write. */
    void run();

    const std::string& name() const
    {
        return sourceName;
    }
    /** Takes effect at the next record; may be called by any thread. */
    void configure(const SourceSettings& settings);

private:
    void write(std::uint64_t number);
    void pace(std::chrono::steady_clock::time_point& next) const;

    const std::string sourceName;
    std::atomic<std::uint32_t> rate;
    std::atomic<std::uint32_t> debugEvery;
    Counters& counters;
    Stop& stop;
    com::kor::dal::nim::log::Module& module;
};

}

#endif
