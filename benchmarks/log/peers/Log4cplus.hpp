#ifndef BENCHMARKS_LOG_PEERS_LOG4CPLUS_HPP
#define BENCHMARKS_LOG_PEERS_LOG4CPLUS_HPP

#include "Output.hpp"

#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <memory>
#include <utility>

class Log4cplus
{
public:
    static constexpr char NAME[] = "log4cplus";
    static constexpr bool ROTATES = true;

    explicit Log4cplus(const Output& output) : logger(instance())
    {
        log4cplus::SharedAppenderPtr appender = makeAppender(output);
        appender->setLayout(std::make_unique<log4cplus::PatternLayout>(
            output.prefix == Prefix::FULL
                ? std::string("%D{%a %b %d %H:%M:%S %Z %Y} %h ") + PROCESS_NAME + " %i %t %c %p %b %L : %m%n"
                : std::string("%p : %m%n")));
        logger.removeAllAppenders();
        logger.setAdditivity(false);
        logger.addAppender(appender);
        logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    }
    Log4cplus(const Log4cplus&) = delete;
    Log4cplus& operator=(const Log4cplus&) = delete;
    ~Log4cplus()
    {
        logger.removeAllAppenders();
    }

    void record(const std::string& text)
    {
        LOG4CPLUS_WARN(logger, text);
    }

    ALWAYS_INLINE void refuse()
    {
        LOG4CPLUS_DEBUG(logger, expensiveText());
    }

private:
    static log4cplus::Logger instance()
    {
        static const log4cplus::Initializer initializer;
        return log4cplus::Logger::getInstance(MODULE_NAME);
    }

    static log4cplus::SharedAppenderPtr makeAppender(const Output& output)
    {
        if (output.maxFileSize != 0) {
            return log4cplus::SharedAppenderPtr(new log4cplus::RollingFileAppender(
                output.path, static_cast<long>(output.maxFileSize), static_cast<int>(OLD_FILES), true));
        }
        return log4cplus::SharedAppenderPtr(
            new log4cplus::FileAppender(output.path, std::ios_base::app, true));
    }

    log4cplus::Logger logger;
};

#endif
