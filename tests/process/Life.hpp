#ifndef TESTS_PROCESS_LIFE_HPP
#define TESTS_PROCESS_LIFE_HPP

#include <dalnim/io/Base64.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <cstdlib>
#include <string>

namespace processtest {

namespace nim = com::kor::dal::nim;

/** An entry of a context that logs in its destructor. */
class Content : public nim::mem::RefCntObject
{
public:
    explicit Content(std::string text) : last(std::move(text)) {}
    ~Content() noexcept override
    {
        NIM_LOG(Severity_WARNING) << last;
    }

private:
    const std::string last;
};

/** Logs a record on the thread that runs it. */
class LoggingTarget : public nim::mt::Runnable
{
public:
    explicit LoggingTarget(std::string targetText) : text(std::move(targetText)) {}

    void run() override
    {
        NIM_LOG(Severity_WARNING) << text;
    }

private:
    const std::string text;
};

inline void expect(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/**
 * Uses the library in all ways that a program or a plug-in may use it at any moment, also during the
 * construction and destruction of its static objects. Logs a record for each.
 */
inline void useLibrary(const std::string& moment)
{
    NIM_LOG(Severity_WARNING) << moment << ": statement";

    const unsigned int key = nim::type::Context::allocateKey(1);
    nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
    expect(context->add(nim::mem::RefCntObjectRef(new Content(moment + ": content")), key));
    context->remove(key);

    LoggingTarget onThread(moment + ": thread");
    nim::mt::Thread thread(onThread);
    thread.start();
    thread.join();

    nim::mt::ThreadPool pool("process", 2, 0, 0, 0, 0, 10);
    LoggingTarget onPool(moment + ": task");
    nim::mt::Task task(onPool);
    pool.add(task);
    pool.shutdown();

    expect(!!nim::sys::DynLibrary::loadProcess());
    expect(!nim::io::Base64().scheme().empty());
    nim::io::Properties().setProperty("a", "b");
}

}

#endif
