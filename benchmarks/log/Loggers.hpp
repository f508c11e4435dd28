#ifndef BENCHMARKS_LOG_LOGGERS_HPP
#define BENCHMARKS_LOG_LOGGERS_HPP

#include "FreshFile.hpp"
#include "peers/Dalnim.hpp"
#include "peers/Output.hpp"
#ifdef DALNIM_BENCH_SPDLOG
#include "peers/Spdlog.hpp"
#endif
#ifdef DALNIM_BENCH_LOG4CPLUS
#include "peers/Log4cplus.hpp"
#endif
#ifdef DALNIM_BENCH_GLOG
#include "peers/Glog.hpp"
#endif
#ifdef DALNIM_BENCH_POCO
#include "peers/PocoLogger.hpp"
#endif
#ifdef DALNIM_BENCH_BOOST_LOG
#include "peers/BoostLog.hpp"
#endif

#include <benchmark/benchmark.h>

#include <memory>

/** Passes a logger type as an argument. */
template <class Logger>
struct Is
{
    typedef Logger type;
};

/** Calls `action(Is<Logger>())` for the library's logger and each installed peer. */
template <class Action>
void forEachLogger(Action action)
{
    action(Is<Dalnim>());
#ifdef DALNIM_BENCH_SPDLOG
    action(Is<Spdlog>());
#endif
#ifdef DALNIM_BENCH_LOG4CPLUS
    action(Is<Log4cplus>());
#endif
#ifdef DALNIM_BENCH_GLOG
    action(Is<Glog>());
#endif
#ifdef DALNIM_BENCH_POCO
    action(Is<PocoLogger>());
#endif
#ifdef DALNIM_BENCH_BOOST_LOG
    action(Is<BoostLog>());
#endif
}

/** The logger that the threads of one repetition share: created before they start, destroyed afterwards. */
template <class Logger>
class Shared
{
public:
    static void create(Output output)
    {
        file() = std::make_unique<FreshFile>();
        output.path = file()->path;
        logger() = std::make_unique<Logger>(output);
    }

    static void destroy(const benchmark::State&)
    {
        logger().reset();
        file().reset();
    }

    static std::unique_ptr<Logger>& logger()
    {
        static std::unique_ptr<Logger> instance;
        return instance;
    }

private:
    static std::unique_ptr<FreshFile>& file()
    {
        static std::unique_ptr<FreshFile> instance;
        return instance;
    }
};

#endif
