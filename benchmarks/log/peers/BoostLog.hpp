#ifndef BENCHMARKS_LOG_PEERS_BOOSTLOG_HPP
#define BENCHMARKS_LOG_PEERS_BOOSTLOG_HPP

#include "Output.hpp"

#include <boost/log/attributes/current_process_id.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <fstream>

/** Has one core per process: concurrent instances would write to the files of all of them. */
class BoostLog
{
public:
    static constexpr char NAME[] = "Boost.Log";
    static constexpr bool ROTATES = false;

    explicit BoostLog(const Output& output) : logger(boost::log::keywords::channel = MODULE_NAME)
    {
        namespace attributes = boost::log::attributes;
        namespace expressions = boost::log::expressions;

        const boost::shared_ptr<boost::log::core> core = boost::log::core::get();
        static const bool isInitialised = [&core] {
            core->add_global_attribute("TimeStamp", attributes::local_clock());
            core->add_global_attribute("ProcessID", attributes::current_process_id());
            core->add_global_attribute("ThreadID", attributes::current_thread_id());
            core->set_filter(expressions::attr<int>("Severity") >= WARNING);
            return true;
        }();
        static_cast<void>(isInitialised);

        const auto backend = boost::make_shared<boost::log::sinks::text_ostream_backend>();
        backend->add_stream(boost::make_shared<std::ofstream>(output.path, std::ios_base::app));
        backend->auto_flush(true);
        sink = boost::make_shared<Sink>(backend);
        if (output.prefix == Prefix::FULL) {
            sink->set_formatter(expressions::stream
                                << expressions::format_date_time<boost::posix_time::ptime>(
                                       "TimeStamp", "%a %b %d %H:%M:%S UTC %Y")
                                << ' ' << hostName() << ' ' << PROCESS_NAME << ' '
                                << expressions::attr<attributes::current_process_id::value_type>("ProcessID")
                                << ' '
                                << expressions::attr<attributes::current_thread_id::value_type>("ThreadID")
                                << ' ' << expressions::attr<std::string>("Channel") << " WARNING "
                                << SOURCE_FILE << ' ' << __LINE__ << " : " << expressions::smessage);
        } else {
            sink->set_formatter(expressions::stream << "WARNING : " << expressions::smessage);
        }
        core->add_sink(sink);
    }
    BoostLog(const BoostLog&) = delete;
    BoostLog& operator=(const BoostLog&) = delete;
    ~BoostLog()
    {
        boost::log::core::get()->remove_sink(sink);
    }

    void record(const std::string& text)
    {
        BOOST_LOG_SEV(logger, WARNING) << text;
    }

    ALWAYS_INLINE void refuse()
    {
        BOOST_LOG_SEV(logger, DEBUG) << expensiveText();
    }

private:
    static constexpr int DEBUG = 1;
    static constexpr int WARNING = 3;
    typedef boost::log::sinks::synchronous_sink<boost::log::sinks::text_ostream_backend> Sink;

    boost::log::sources::severity_channel_logger_mt<int> logger;
    boost::shared_ptr<Sink> sink;
};

#endif
