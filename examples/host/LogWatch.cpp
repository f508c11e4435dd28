#include "LogWatch.hpp"

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

void LogWatch::expect(const std::string& path)
{
    expected = path;
    lost = false;
}

void LogWatch::look()
{
    if (expected.empty() || !::com_kor_dal_nim_log_control.getPath().empty()) {
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
    if (LogSettings::openingError(expected) != 0) {
        return;
    }
    try {
        LogSettings::reopen(expected);
        NIM_LOG(Severity_WARNING) << "the log is in " << expected << " again; its records since " << since
                                  << " are on standard error";
        lost = false;
    } catch (const std::exception& exc) {
        useStandardError(exc.what());
    }
}

void LogWatch::reopenIfRemoved()
{
    struct stat status = {};
    const std::string path = ::com_kor_dal_nim_log_control.getPath();
    if (path.empty() || stat(path.c_str(), &status) == 0) {
        return;
    }
    // Looked at first, so that no statement of another thread fails.
    if (const int error = LogSettings::openingError(path)) {
        useStandardError(path + ": " + nim::sys::sys_err_string(error));
    } else {
        LogSettings::reopen(path);
    }
}

void LogWatch::useStandardError(const std::string& why)
{
    // The file that was open is closed, and the new one cannot be opened: not even by asking for
    // the stream of the log, as a change of it by name does.
    nim::log::GET_NIM_LOG_LOGGER_VAR().setStream(std::cerr);
    std::cerr << "nimhost: logs to standard error: " << why << std::endl;
}

}
