#ifndef BENCHMARKS_LOG_PEERS_POCOLOGGER_HPP
#define BENCHMARKS_LOG_PEERS_POCOLOGGER_HPP

#include "Output.hpp"

#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

class PocoLogger
{
public:
    static constexpr char NAME[] = "POCO";
    static constexpr bool ROTATES = true;

    explicit PocoLogger(const Output& output) : logger(Poco::Logger::get(MODULE_NAME))
    {
        Poco::AutoPtr<Poco::FileChannel> file(new Poco::FileChannel(output.path));
        file->setProperty(Poco::FileChannel::PROP_FLUSH, "true");
        if (output.maxFileSize != 0) {
            file->setProperty(Poco::FileChannel::PROP_ROTATION, std::to_string(output.maxFileSize));
            file->setProperty(Poco::FileChannel::PROP_ARCHIVE, "number");
            file->setProperty(Poco::FileChannel::PROP_PURGECOUNT, std::to_string(OLD_FILES));
        }
        const Poco::AutoPtr<Poco::PatternFormatter> formatter(new Poco::PatternFormatter(
            output.prefix == Prefix::FULL
                ? std::string("%w %b %d %H:%M:%S %Z %Y %N ") + PROCESS_NAME + " %P %I %s %p %U %u : %t"
                : std::string("%p : %t")));
        logger.setChannel(new Poco::FormattingChannel(formatter, file));
        logger.setLevel(Poco::Message::PRIO_WARNING);
    }
    PocoLogger(const PocoLogger&) = delete;
    PocoLogger& operator=(const PocoLogger&) = delete;
    ~PocoLogger()
    {
        logger.setChannel(nullptr);
    }

    void record(const std::string& text)
    {
        if (logger.warning()) {
            logger.warning(text, SOURCE_FILE, __LINE__);
        }
    }

    /** The expansion of the library's macros; the one for debug messages is empty in release builds. */
    ALWAYS_INLINE void refuse()
    {
        if (logger.debug()) {
            logger.debug(expensiveText(), SOURCE_FILE, __LINE__);
        }
    }

private:
    Poco::Logger& logger;
};

#endif
