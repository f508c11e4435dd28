#ifndef BENCHMARKS_LOG_PEERS_GLOG_HPP
#define BENCHMARKS_LOG_PEERS_GLOG_HPP

#include "Output.hpp"

#include <glog/logging.h>

#include <unistd.h>

/** Has one instance per process: concurrent instances would write to the same file. */
class Glog
{
public:
    static constexpr char NAME[] = "glog";
    /** Starts new files, but does not remove old ones. */
    static constexpr bool ROTATES = false;

    explicit Glog(const Output& output) : hasFullPrefix(output.prefix == Prefix::FULL)
    {
        static const bool isInitialised = [] {
            google::InitGoogleLogging(PROCESS_NAME);
            return true;
        }();
        static_cast<void>(isInitialised);
        FLAGS_timestamp_in_logfile_name = false;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_logbuflevel = -1;
        FLAGS_log_prefix = hasFullPrefix;
        FLAGS_max_log_size = 4000;
        google::SetLogSymlink(google::GLOG_INFO, "");
        google::SetLogDestination(google::GLOG_INFO, output.path.c_str());
    }
    Glog(const Glog&) = delete;
    Glog& operator=(const Glog&) = delete;
    ~Glog()
    {
        google::SetLogDestination(google::GLOG_INFO, "");
    }

    void record(const std::string& text)
    {
        if (hasFullPrefix) {
            LOG(INFO) << hostName() << ' ' << PROCESS_NAME << ' ' << getpid() << ' ' << MODULE_NAME << " : "
                      << text;
        } else {
            LOG(INFO) << "WARNING : " << text;
        }
    }

    ALWAYS_INLINE void refuse()
    {
        VLOG(1) << expensiveText();
    }

private:
    const bool hasFullPrefix;
};

#endif
