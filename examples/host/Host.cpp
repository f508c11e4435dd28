#include "Host.hpp"

#include "Report.hpp"

#include <dalnim/nim.hpp>

#include <iostream>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace nimhost {

namespace {

constexpr long PROGRESS_NANOSECONDS = 100000000;

/** Only the thread that waits for them gets these: the threads that it starts inherit the block. */
sigset_t blockSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void logWarnings(const std::string& warnings)
{
    std::istringstream lines(warnings);
    for (std::string line; std::getline(lines, line);) {
        NIM_LOG(Severity_WARNING) << line;
    }
}

}

Host::Host(const Options& given) : options(given), signals(blockSignals()), configuration(options.config)
{
    stop.recordsLeft = options.records != 0 ? static_cast<std::int64_t>(options.records)
                                            : std::numeric_limits<std::int64_t>::max();
    configuration.configureLog();
    logWarnings(configuration.warnings());
    for (unsigned int i = 0; i < options.threads; ++i) {
        const std::string name = "source-" + std::to_string(i);
        sources.push_back(std::make_unique<Source>(name, configuration.source(name), counters, stop));
    }
}

int Host::run()
{
    NIM_LOG(Severity_NOTICE) << "nimhost starts with " << sources.size() << " sources";
    startSources();
    waitForEnd();
    stopSources();
    NIM_LOG(Severity_NOTICE) << "nimhost ends after " << counters.written << " records";
    showTable(std::cout, seconds(), counters, traces.rotations());
    return status;
}

double Host::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Host::startSources()
{
    start = std::chrono::steady_clock::now();
    running = static_cast<unsigned int>(sources.size());
    for (const auto& source : sources) {
        threads.emplace_back([this, &source] {
            source->run();
            --running;
        });
    }
}

bool Host::atEnd() const
{
    return ending || running == 0 || (options.seconds != 0 && seconds() >= options.seconds);
}

void Host::waitForEnd()
{
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    while (!atEnd()) {
        const timespec interval = {0, PROGRESS_NANOSECONDS};
        const int signal = sigtimedwait(&signals, nullptr, &interval);
        if (terminal) {
            showProgress(std::cout, seconds(), counters, traces.rotations());
        }
        if (signal != -1) {
            handleSignal(signal);
        }
    }
    if (terminal) {
        clearProgress(std::cout);
    }
}

void Host::handleSignal(int signal)
{
    if (signal == SIGHUP) {
        readConfigurationAgain();
    } else {
        NIM_LOG(Severity_NOTICE) << "nimhost was told to end by signal " << signal;
        ending = true;
    }
}

void Host::readConfigurationAgain()
{
    // A mistake in the new configuration ends nothing: the log that is open keeps its records, and
    // the exit status tells of it.
    try {
        const Configuration fresh(options.config);
        std::vector<SourceSettings> settings;
        for (const auto& source : sources) {
            settings.push_back(fresh.source(source->name()));
        }
        fresh.configureLog();
        logWarnings(fresh.warnings());
        for (std::size_t i = 0; i < sources.size(); ++i) {
            sources[i]->configure(settings[i]);
        }
        NIM_LOG(Severity_NOTICE) << "nimhost has read " << options.config << " again";
    } catch (const ConfigurationError& exc) {
        status = 2;
        std::cerr << "nimhost: " << exc.what() << std::endl;
        NIM_LOG_TRAPPED(Severity_ERROR, exc, "nimhost keeps its configuration");
    }
}

void Host::stopSources()
{
    stop.now = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}
