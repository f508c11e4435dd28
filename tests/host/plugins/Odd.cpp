// A plug-in that misbehaves: see the operations. The setting "throw" makes its entry throw.

#include <host/plugins/Service.hpp>

#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace {

namespace nim = com::kor::dal::nim;
using nim::String;
using nimhost::ServiceCall;

/** An exception whose destructor and message are code of this library. */
class OwnError : public std::exception
{
public:
    explicit OwnError(const char* reason) : text(reason) {}
    ~OwnError() override = default;

    const char* what() const noexcept override
    {
        return text.c_str();
    }

private:
    const String text;
};

/** An exception that is not derived from std::exception. */
struct Oddity
{
    int number = 7;
};

void throwAsAsked(const String& type)
{
    if (type == "int") {
        throw 42;
    }
    if (type == "oddity") {
        throw Oddity();
    }
    if (type == "own") {
        throw OwnError("an error of the plug-in's own");
    }
}

void touch(const String& path)
{
    const std::ofstream file(path);
}

bool exists(const String& path)
{
    return std::ifstream(path).good();
}

/** A task that the plug-in adds to the pool that serves its request. */
class Background : public nim::mt::Task
{
public:
    explicit Background(const String& type) : Task("background"), thrown(type) {}

    void run() override
    {
        const nim::sys::StackTrack track("run()", "Background", "odd", 17);
        while (thrown == "never") {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        throwAsAsked(thrown);
        throw nim::sys::system_error(EPROTO);
    }

private:
    const String thrown;
};

class OddService : public nimhost::Service
{
public:
    String perform(const ServiceCall& call) const override
    {
        throwAsAsked(call.operation);
        if (call.operation == "wait") {
            const nim::sys::StackTrack track("wait()", "Service", "odd", 5);
            // Creates one file to show that it runs, and waits for another, possibly forever.
            touch(call.argument("running"));
            while (!exists(call.argument("end"))) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        if (call.operation == "background") {
            nim::mt::ThreadPool::currentPool()->add(new Background(call.argument("throw")), true);
        }
        return call.operation;
    }
};

}

NIMHOST_PLUGIN(settings)
{
    throwAsAsked(settings.getProperty("throw"));
    return new OddService;
}
