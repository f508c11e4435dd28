#ifndef BENCHMARKS_LOG_PEERS_SPDLOG_HPP
#define BENCHMARKS_LOG_PEERS_SPDLOG_HPP

#include "Output.hpp"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <utility>

class Spdlog
{
public:
    static constexpr char NAME[] = "spdlog";
    static constexpr bool ROTATES = true;

    explicit Spdlog(const Output& output) : logger(MODULE_NAME, makeSink(output))
    {
        logger.set_level(spdlog::level::warn);
        logger.flush_on(spdlog::level::trace);
        logger.set_pattern(output.prefix == Prefix::FULL ? "%a %b %d %H:%M:%S %z %Y " + hostName() + ' '
                                                               + PROCESS_NAME + " %P %t %n %l %s %# : %v"
                                                         : "%l : %v");
    }

    void record(const std::string& text)
    {
        logger.log(spdlog::source_loc{SOURCE_FILE, __LINE__, "record"}, spdlog::level::warn, "{}", text);
    }

    /** A disabled statement evaluates its arguments, so they are inexpensive. */
    ALWAYS_INLINE void refuse()
    {
        SPDLOG_LOGGER_CALL(&logger, spdlog::level::debug, "row {}", 12);
    }

private:
    static std::shared_ptr<spdlog::sinks::sink> makeSink(const Output& output)
    {
        if (output.maxFileSize != 0) {
            return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(output.path, output.maxFileSize,
                                                                          OLD_FILES);
        }
        return std::make_shared<spdlog::sinks::basic_file_sink_mt>(output.path);
    }

    spdlog::logger logger;
};

#endif
