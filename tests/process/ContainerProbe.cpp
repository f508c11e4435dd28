/**
 * A program that uses each part of the library once, in a container that lacks something:
 *
 *     container_probe DIRECTORY PLUGIN...
 *
 * Writes files below DIRECTORY: the log, and "result" with one line for each part. Standard streams are not
 * used, since they may be closed. Each PLUGIN is loaded.
 */

#include "Life.hpp"
#include "Patience.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/sys/CrashReport.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/xml/Consumer.hpp>
#include <dalnim/xml/Parser.hpp>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace nim = com::kor::dal::nim;
namespace io = nim::io;
namespace mt = nim::mt;
namespace sys = nim::sys;
using nim::String;

String directory;
std::ofstream result;

/** Writes a line: what the part returns, or its exception. */
void part(const char* name, const std::function<String()>& run)
{
    result << name << ": ";
    try {
        result << run() << std::endl;
    } catch (const std::exception& exc) {
        result << "exception: " << exc.what() << std::endl;
    }
}

String contentOf(const String& name)
{
    std::ifstream file(directory + '/' + name);
    return String(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool contains(const String& text, const String& part)
{
    return text.find(part) != String::npos;
}

/** Configures the log as a server does, and returns its settings. */
String configure()
{
    std::istringstream text("com.kor.dal.nim.log.Control.file = " + directory
                            + "/server.log\n"
                              "com.kor.dal.nim.log.Control.output.mask = SEVERITY\n"
                              "com.kor.dal.nim.log.Control.maxNumberOfFiles = 9\n");
    sys::System::setConfiguration(io::Properties(text));
    com_kor_dal_nim_log_control.setMaxFileSize(2048);
    return contains(contentOf("server.log"), "OutputPath:   \"" + directory + "/server.log\"")
               ? "the file has its header"
               : "the file has no header";
}

/** Logs until the file has been rotated, and returns what is missing. */
String rotate()
{
    constexpr int RECORDS = 200;
    for (int i = 0; i < RECORDS; ++i) {
        NIM_LOG(Severity_WARNING) << "record " << i << '.';
    }
    String all;
    for (int file = 8; file >= 0; --file) {
        all += contentOf("server.log." + std::to_string(file));
    }
    all += contentOf("server.log");
    int found = 0;
    for (int i = 0; i < RECORDS; ++i) {
        found += contains(all, "WARNING : record " + std::to_string(i) + ".\n") ? 1 : 0;
    }
    struct stat status;
    const bool isRotated = ::stat((directory + "/server.log.0").c_str(), &status) == 0;
    return std::to_string(found) + " records, " + (isRotated ? "rotated" : "not rotated");
}

String useAll()
{
    com_kor_dal_nim_log_control.setMaxFileSize(0);
    processtest::useLibrary("container");
    const String text = contentOf("server.log");
    String found;
    for (const char* const use : {"statement", "content", "thread", "task"}) {
        found += contains(text, String("container: ") + use + '\n') ? String(use) + ' ' : String();
    }
    return found + "logged";
}

class Sum : public mt::Runnable
{
public:
    explicit Sum(std::atomic<int>& into) : sum(into) {}
    void run() override
    {
        sum += 3;
    }

private:
    std::atomic<int>& sum;
};

String pool()
{
    constexpr int TASKS = 100;
    std::atomic<int> sum{0};
    mt::ThreadPool workers("workers", 3, 0, 0, 0, 0, TASKS);
    for (int i = 0; i < TASKS; ++i) {
        workers.add(new mt::Task(new Sum(sum), true), true);
    }
    workers.shutdown();
    return std::to_string(sum);
}

String waitForNothing()
{
    mt::SysMutex mutex;
    const mt::CondSem condition(&mutex);
    const mt::MutexHolder<mt::CondSem> holder(condition.acquire());
    const auto began = std::chrono::steady_clock::now();
    const bool isSignalled = condition.wait(20);
    const auto passed = std::chrono::steady_clock::now() - began;
    return isSignalled ? "signalled" : passed < std::chrono::milliseconds(20) ? "too early" : "timed out";
}

String plugin(const String& path)
{
    const sys::ConstDynLibraryRef library = sys::DynLibrary::load(path);
    reinterpret_cast<void (*)(const char*)>(library->symbol("process_say")->func())("spoken");
    return contains(contentOf("server.log"), "WARNING : spoken\n") ? "spoken" : "not logged";
}

String properties()
{
    std::ofstream(directory + "/a.properties") << "a = 1\n%pragma include \"b.properties\"\n";
    std::ofstream(directory + "/b.properties") << "b = 2\n";
    std::ifstream file(directory + "/a.properties");
    io::Properties table;
    std::ostringstream messages;
    table.load(file, directory + "/a.properties", messages, messages, io::Properties::SEV_WARNING);
    return table.getProperty("a") + ' ' + table.getProperty("b");
}

String base64()
{
    const io::Base64 encoding;
    const String encoded = encoding.encode("The quick brown fox jumps over the lazy dog.");
    return encoded + ' ' + encoding.decode(encoded);
}

class Counter : public nim::xml::Consumer
{
public:
    bool elementBegin(const String& tag, const String&, const nim::xml::Attributes&) override
    {
        tags += tag + ' ';
        return true;
    }
    bool elementEnd(const String&, const String&) override
    {
        return true;
    }
    bool elementProcessData(const String&, const String&, const String& data, bool) override
    {
        tags += '"' + data + "\" ";
        return true;
    }

    String tags;
};

String xml()
{
    nim::mem::RcoRef<Counter> counter(new Counter);
    nim::xml::ConsumerRef consumer(counter);
    nim::xml::Parser(consumer).parse(String("<requests><one/><two>text</two></requests>"));
    return counter->tags;
}

/** Blocks in a track, until it is released. */
class Waiter : public mt::Runnable
{
public:
    void run() override
    {
        const sys::StackTrack track("hold()", "Waiter", "container", 7);
        inside.set_value();
        release.get_future().wait();
    }

    std::promise<void> inside;
    std::promise<void> release;
};

/** Reports on a thread that is blocked. */
String threads()
{
    sys::ThreadReport::install();
    Waiter waiter;
    mt::Thread thread(waiter, true, "waiter");
    thread.setKernelName();
    thread.start();
    waiter.inside.get_future().wait();
    const sys::ThreadReport report(processtest::PATIENCE_S * 100);
    waiter.release.set_value();
    thread.join();
    String silence = "no thread";
    for (const sys::ThreadReport::Entry& entry : report.threads()) {
        if (entry.taskName == "waiter") {
            return "kernel's name \"" + entry.name + "\", in "
                   + (entry.tracks.empty() ? "no track" : entry.tracks.front());
        }
        silence = entry.hasAnswered ? silence : entry.silence;
    }
    return silence;
}

/** Runs `body` in a child, and returns its end. */
String inChild(const std::function<void()>& body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            body();
        } catch (const std::exception& exc) {
            result << exc.what() << ", " << std::flush;
            ::_exit(1);
        }
        ::_exit(0);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        return "lost";
    }
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "status " + std::to_string(WEXITSTATUS(status));
}

String forkChild()
{
    const pid_t parent = sys::System::procId();
    const String end = inChild([parent] {
        NIM_LOG(Severity_WARNING) << "child " << (sys::System::procId() == ::getpid())
                                  << (sys::System::procId() == parent) << '.';
    });
    return end + (contains(contentOf("server.log"), "WARNING : child 10.\n") ? ", logged" : ", not logged");
}

[[gnu::noinline]] void crash()
{
    *reinterpret_cast<volatile int*>(16) = 1;
}

/** Crashes in a child, and returns which parts of the report are in the log. */
String crashChild(const std::function<void()>& how)
{
    const String before = contentOf("server.log");
    const String end = inChild([&how] {
        sys::CrashReport::install();
        const sys::StackTrack track("crash()", "Probe", "container", 9);
        how();
    });
    const String report = contentOf("server.log").substr(before.size());
    return end + (contains(report, "FATAL : Crash: SIGSEGV") ? ", reported" : ", not reported")
           + (contains(report, "container.Probe.crash():9") ? ", track" : "")
           + (contains(report, "container_probe+0x") ? ", module" : "");
}

}

int main(int argc, char** argv)
{
    alarm(processtest::PATIENCE_S);
    directory = argv[1];
    // The first free descriptor: it has the number of a standard stream if that is closed.
    const int data = ::open((directory + "/data").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (data == -1 || ::write(data, "data\n", 5) != 5) {
        return 3;
    }
    for (int low = data; low <= STDERR_FILENO; low = ::dup(data)) {
    }
    result.open(directory + "/result");
    if (!result) {
        return 4;
    }
    part("configuration", configure);
    part("log", rotate);
    part("library", useAll);
    part("pool", pool);
    part("wait", waitForNothing);
    for (int i = 2; i < argc; ++i) {
        part("plug-in", [&] { return plugin(argv[i]); });
    }
    part("properties", properties);
    part("Base64", base64);
    part("XML", xml);
    part("process", [] { return sys::System::getProcessPath(sys::System::EXECUTABLE_NAME_ONLY); });
    part("fork", forkChild);
    part("threads", threads);
    part("crash", [] { return crashChild(crash); });
    part("signal", [] { return crashChild([] { ::kill(::getpid(), SIGSEGV); }); });
    part("data", [] { return contentOf("data"); });
    return result.good() ? 0 : 5;
}
