/**
 * A small program that logs where a test cannot: before main(), while the process exits, from the
 * destructors of a thread, and in the child of a fork. Each run is a process in its first state.
 *
 *     LogProbe <what> [<path of a log file>]
 */

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace io = com::kor::dal::nim::io;
namespace log = com::kor::dal::nim::log;
namespace sys = com::kor::dal::nim::sys;
using com::kor::dal::nim::String;

log::Control& control()
{
    return com_kor_dal_nim_log_control;
}

/** Logs during static construction and destruction, if requested. */
struct StaticObject
{
    StaticObject()
    {
        if (std::getenv("PROBE_EARLY") != nullptr) {
            NIM_LOG(Severity_WARNING) << "before main";
        }
    }
    ~StaticObject()
    {
        if (armed) {
            NIM_LOG(Severity_WARNING) << "from a static destructor";
            NIM_LOG_TO(log::Module::getInstance("probe.dynamic", log::GET_NIM_LOG_LOGGER_VAR()),
                       Severity_ERROR)
                << "under a module of its own";
            control().setSeverity("DEBUG");
            NIM_LOG(Severity_DEBUG) << "with another severity";
        }
    }
    bool armed = false;
};

StaticObject static_object;

/** Made behind static_object, and so destroyed before it. */
log::Module static_module("probe.static.with.a.name.that.is.too.long.for.a.short.string",
                          log::GET_NIM_LOG_LOGGER_VAR());

void listModules()
{
    log::Control::StringColl names;
    control().getModulesRegisteredDynamic(names);
    for (const String& name : names) {
        std::cout << name << '\n';
    }
}

void logTwice()
{
    NIM_LOG(Severity_INFO) << "below the threshold";
    NIM_LOG(Severity_NOTICE) << "first";
    NIM_LOG(Severity_FATAL) << "second";
}

void exitWithStaticObjects()
{
    static_object.armed = true;
    std::atexit([] { NIM_LOG(Severity_WARNING) << "from an exit handler"; });
    NIM_LOG_TO(static_module, Severity_WARNING) << "from main";
}

void logForever(std::atomic<int>& running)
{
    for (unsigned long n = 0;; ++n) {
        NIM_LOG(Severity_WARNING) << "record " << n << " of a thread that nobody waits for";
        if (n == 0) {
            ++running;
        }
    }
}

void startLogging(int threads)
{
    // Never destroyed: its users outlive main().
    static std::atomic<int>& running = *new std::atomic<int>(0);
    for (int i = 0; i < threads; ++i) {
        std::thread([] { logForever(running); }).detach();
    }
    while (running != threads) {
        std::this_thread::yield();
    }
}

void exitWhileOthersLog()
{
    static_object.armed = true;
    startLogging(3);
}

pthread_key_t late_key;

void logFromThreadEnd()
{
    std::thread([] {
        // The first statement makes what the library knows of this thread. The key comes behind it,
        // and so does its destructor.
        NIM_LOG(Severity_WARNING) << "from the thread";
        pthread_key_create(&late_key, [](void*) { NIM_LOG(Severity_WARNING) << "from the thread's end"; });
        pthread_setspecific(late_key, &late_key);
    }).join();
}

/** Runs `body` in a child; its exit status, or -1. */
template <class Body>
int inFork(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

int logInFork()
{
    control().setOutputMask(log::Mask_PROCESSID | log::Mask_THREADID);
    NIM_LOG(Severity_WARNING) << "parent";
    std::cout << getpid() << std::endl;
    return inFork([] {
        NIM_LOG(Severity_WARNING) << "child";
        std::cout << getpid() << std::endl;
    });
}

int forkWhileOthersLog()
{
    startLogging(2);
    for (int i = 0; i < 100; ++i) {
        if (inFork([i] { NIM_LOG(Severity_ERROR) << "child " << i; }) != 0) {
            std::cout << "child " << i << " hangs" << std::endl;
            _exit(1);
        }
    }
    _exit(0);
}

/** With standard error closed: a file of the program's gets its number. */
void logAfterAFileGotTheNumberOfStandardError(const char* path)
{
    if (open(path, O_WRONLY | O_CREAT | O_APPEND, 0600) != STDERR_FILENO
        || write(STDERR_FILENO, "data\n", 5) != 5) {
        _exit(1);
    }
    for (int i = 0; i < 2; ++i) {
        try {
            NIM_LOG(Severity_ERROR) << "for nobody";
        } catch (const std::exception&) {
            // There is no output.
        }
    }
    log::Write logger;
    log::Module module("own", logger);
    NIM_LOG_TO(module, Severity_ERROR) << "for nobody";
    logger.setStream(std::cerr);
    NIM_LOG_TO(module, Severity_ERROR) << "for nobody";
}

/** With standard error closed: the program opens it, and says so. */
void logAfterStandardErrorIsNamed(const char* path)
{
    log::Write logger;
    log::Module module("own", logger);
    if (open(path, O_WRONLY | O_CREAT | O_APPEND, 0600) != STDERR_FILENO) {
        _exit(1);
    }
    NIM_LOG_TO(module, Severity_ERROR) << "before";
    logger.setStream("STDERR");
    NIM_LOG_TO(module, Severity_ERROR) << "named";
}

/** Configures the log with `settings`, and writes the outcome to a file. */
void configureLog(const char* path, const char* settings)
{
    std::istringstream text(settings);
    String outcome = "configured";
    try {
        sys::System::setConfiguration(io::Properties(text));
    } catch (const sys::system_error& exc) {
        outcome = std::to_string(exc.error()) + ": " + exc.what();
    }
    // Only now: it may get the number of a standard stream.
    std::ofstream(path) << outcome;
}

/** With all standard descriptors closed: logs which of them the log has opened. */
void logLowDescriptors(const char* path)
{
    log::Write logger;
    log::Module module("own", logger);
    logger.setPath(path);
    logger.setMaxFileSize(1);
    for (int i = 0; i < 3; ++i) {
        logger.getStream();
        String opened;
        for (const int number : {0, 1, 2}) {
            opened += fcntl(number, F_GETFD) == -1 ? String() : std::to_string(number);
        }
        if (i == 2) {
            logger.setMaxFileSize(0);
        }
        NIM_LOG_TO(module, Severity_ERROR) << (opened.empty() ? "none" : opened);
    }
}

}

int main(int argc, char** argv)
{
    const String what = argc > 1 ? argv[1] : "";
    if (argc > 2 && what == "closed-stderr") {
        logAfterAFileGotTheNumberOfStandardError(argv[2]);
        return 0;
    }
    if (argc > 3 && what == "configure") {
        configureLog(argv[2], argv[3]);
        return 0;
    }
    if (argc > 2 && what == "reopened-stderr") {
        logAfterStandardErrorIsNamed(argv[2]);
        return 0;
    }
    if (argc > 2 && what == "low-descriptors") {
        logLowDescriptors(argv[2]);
        return 0;
    }
    if (argc > 2) {
        control().setPath(argv[2]);
    }
    if (what == "modules") {
        listModules();
    } else if (what == "log") {
        logTwice();
    } else if (what == "exit") {
        exitWithStaticObjects();
    } else if (what == "exit-while-logging") {
        exitWhileOthersLog();
    } else if (what == "thread-end") {
        logFromThreadEnd();
    } else if (what == "fork") {
        return logInFork();
    } else if (what == "fork-while-logging") {
        return forkWhileOthersLog();
    } else {
        return 2;
    }
    std::exit(0);
}
