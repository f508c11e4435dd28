#ifndef BENCHMARKS_LOG_PEERS_DALNIM_HPP
#define BENCHMARKS_LOG_PEERS_DALNIM_HPP

#include "Output.hpp"

/** Replaces the path of this file, so that the length of lines does not depend on the source directory. */
#define NIM_LOG_FILE SOURCE_FILE

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

/** The library's own logger. Creates its module before the threads that use it start. */
class Dalnim
{
public:
    static constexpr char NAME[] = "dalnim";
    static constexpr bool ROTATES = true;

    explicit Dalnim(const Output& output) : module(makeModule(logger, output)) {}

    void record(const std::string& text)
    {
        NIM_LOG_TO(module, Severity_WARNING) << text;
    }

    ALWAYS_INLINE void refuse()
    {
        NIM_LOG_TO(module, Severity_DEBUG) << expensiveText();
    }

private:
    static com::kor::dal::nim::log::Module& makeModule(com::kor::dal::nim::log::Write& logger,
                                                       const Output& output)
    {
        namespace log = com::kor::dal::nim::log;
        logger.setPath(output.path);
        logger.setMaxFileSize(output.maxFileSize);
        logger.setMaxNumberOfFiles(OLD_FILES);
        if (output.prefix == Prefix::SEVERITY) {
            logger.setOutputMask(log::Mask_SEVERITY);
        }
        return log::Module::getInstance(MODULE_NAME, logger);
    }

    com::kor::dal::nim::log::Write logger;
    com::kor::dal::nim::log::Module& module;
};

#endif
