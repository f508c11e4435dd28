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

constexpr std::chrono::seconds INTERVAL(3);

}

void LogWatch::expect(const Configuration& configuration)
{
    settings = configuration.logPath().empty()
                   ? nullptr
                   : std::make_unique<const nim::io::Properties>(configuration.settings());
    lost = false;
}

void LogWatch::look()
{
    if (settings == nullptr || !::com_kor_dal_nim_log_control.getPath().empty()) {
        lost = false;
        return;
    }
    const Clock::time_point now = Clock::now();
    if (!lost) {
        lost = true;
        since = nim::log::getDateTime(std::time(nullptr));
        nextTry = now;
    }
    if (now < nextTry) {
        return;
    }
    nextTry = now + INTERVAL;
    try {
        LogSettings::apply(*settings, "nimhost", LogSettings::NEVER_WAITS);
    } catch (const ConfigurationError&) {
        return;
    }
    lost = false;
    NIM_LOG(Severity_WARNING) << "the log is in " << ::com_kor_dal_nim_log_control.getPath()
                              << " again; its records since " << since << " are on standard error";
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
        std::cerr << "nimhost: logs to standard error: " << why << std::endl;
    }
}

}
