#include "LogWatch.hpp"

#include "Failure.hpp"
#include "LogSettings.hpp"

#include <dalnim/nim.hpp>

#include <ctime>
#include <iostream>
#include <sys/stat.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

constexpr std::chrono::seconds RETRY_INTERVAL(3);

}

void LogWatch::setConfiguration(const Configuration& configuration)
{
    settings = configuration.logPath().empty()
                   ? nullptr
                   : std::make_unique<const nim::io::Properties>(configuration.settings());
    hasLostFile = false;
}

void LogWatch::check()
{
    if (settings == nullptr || !::com_kor_dal_nim_log_control.getPath().empty()) {
        hasLostFile = false;
        return;
    }
    const Clock::time_point now = Clock::now();
    if (!hasLostFile) {
        hasLostFile = true;
        since = nim::log::getDateTime(std::time(nullptr));
        nextTry = now;
    }
    if (now < nextTry) {
        return;
    }
    nextTry = now + RETRY_INTERVAL;
    try {
        LogSettings::apply(*settings, "nimhost", LogSettings::NON_BLOCKING);
    } catch (const ConfigurationError&) {
        return;
    }
    hasLostFile = false;
    NIM_LOG(Severity_WARNING) << "logging to " << ::com_kor_dal_nim_log_control.getPath()
                              << " again; the records since " << since << " are on standard error";
}

void LogWatch::reopenIfRemoved()
{
    struct stat status = {};
    const std::string path = ::com_kor_dal_nim_log_control.getPath();
    if (path.empty() || stat(path.c_str(), &status) == 0) {
        return;
    }
    try {
        ::com_kor_dal_nim_log_control.reopen();
    } catch (...) {
        const std::string why = currentFailure();
        nim::log::GET_NIM_LOG_LOGGER_VAR().setStream(std::cerr);
        writeError({"logging to standard error: ", why});
    }
}

}
