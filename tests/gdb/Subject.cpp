// The program that the gdb extension is tested with: gdb_subject LOG PLUGIN [--abort]. It has threads with
// tracks, tasks and contexts, a busy and an idle pool, two loggers, a plug-in, and an object of each class
// that has a printer. When everything is in place, it calls stopHere(); with --abort, it leaves a core file
// there.

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/mem/ObjectHolder.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <dalnim/type/ContainerContext.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_String.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>

namespace nim = com::kor::dal::nim;

namespace subject {

/** Content of a context. */
class Ticket : public nim::mem::RefCntObject
{};

class Holding : public nim::mt::Task
{
public:
    Holding(const char* name, std::promise<void>& begun, std::shared_future<void> end)
        : Task(name), hasBegun(begun), mayEnd(std::move(end))
    {
    }
    void run() override
    {
        const nim::sys::StackTrack track("run()", "Holding", "subject", 40);
        hasBegun.set_value();
        mayEnd.wait();
    }

private:
    std::promise<void>& hasBegun;
    std::shared_future<void> mayEnd;
};

class Waiting : public nim::mt::Task
{
public:
    explicit Waiting(const char* name) : Task(name) {}
    void run() override {}
};

/** An exception of the application, with the trace of the library's. */
class OrderError : public nim::sys::system_error
{
public:
    OrderError() : system_error(22, "no such order") {}
};

/**
 * Returns the numbers of context switches of all other threads, or an empty string if one of them does not
 * sleep.
 */
std::string switchesOfSleepers()
{
    std::string switches;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(getpid())) {
            continue;
        }
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("State:", 0) == 0 && line.find('S', 6) == std::string::npos) {
                return std::string();
            }
            if (line.find("ctxt_switches") != std::string::npos) {
                switches += line;
            }
        }
    }
    return switches;
}

/** Waits until all other threads sleep: no worker is about to become idle. */
void awaitSleep()
{
    for (std::string first, second; first.empty() || first != second;) {
        std::this_thread::yield();
        // A thread that sleeps in both rounds without a context switch has slept in between.
        first = switchesOfSleepers();
        second = switchesOfSleepers();
    }
}

/** Lets another thread wait for a lock. */
template <class Lock>
void contend(Lock& lock)
{
    std::unique_lock<Lock> held(lock);
    std::thread other([&lock] { const std::lock_guard<Lock> guard(lock); });
    awaitSleep();
    held.unlock();
    other.join();
}

/** Where the test stops. The arguments are what it prints. */
[[gnu::noinline, gnu::used]] void
stopHere(RX_String& text, nim::mem::RcoRef<Ticket>& ticket, nim::mem::RcoRef<Ticket>& noTicket,
         nim::mem::ObjectHolder& owning, nim::mem::ObjectHolder& borrowing, nim::io::Properties& properties,
         nim::type::CompositeString& composite, nim::type::ContainerContextRef& context,
         const nim::sys::system_error& error, const OrderError& orderError, const RX_Exception& runtimeError,
         nim::mt::ThreadPool& orders, bool aborts)
{
    std::cout << "ready" << std::endl;
    if (aborts) {
        std::abort();
    }
    // Uses everything, so that it exists until here.
    __asm__ volatile(""
                     :
                     : "r"(&text), "r"(&ticket), "r"(&noTicket), "r"(&owning), "r"(&borrowing),
                       "r"(&properties)
                     : "memory");
    __asm__ volatile(""
                     :
                     : "r"(&composite), "r"(&context), "r"(&error), "r"(&orderError), "r"(&runtimeError),
                       "r"(&orders)
                     : "memory");
}

}

using namespace subject;

int main(int argc, char** argv)
{
    if (argc < 3) {
        return 2;
    }
    const nim::sys::StackTrack outer("main()", "subject", 1);

    com_kor_dal_nim_log_control.setPath(argv[1]);
    com_kor_dal_nim_log_control.setMaxFileSize(1000000);
    com_kor_dal_nim_log_control.setMaxNumberOfFiles(5);
    com_kor_dal_nim_log_control.setSeverity(nim::log::Severity_INFO);
    nim::log::Module& module =
        nim::log::Module::getInstance("subject.orders", nim::log::GET_NIM_LOG_LOGGER_VAR());
    NIM_LOG_TO(module, Severity_WARNING) << "the order is late";
    nim::log::Write second;
    second.setSeverityMask(nim::log::Severity_ERROR, true);
    second.setModuleFilter("subject.*", true);

    const nim::sys::ConstDynLibraryRef plugin = nim::sys::DynLibrary::load(argv[2]);
    const nim::sys::DynSymbolRef symbol = plugin->symbol("gdb_plugin_answer");

    const unsigned int key = nim::type::Context::allocateKey(1);
    nim::mem::RcoRef<Ticket> ticket(new Ticket);
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(ticket), key);

    std::promise<void> begun;
    std::promise<void> end;
    Holding holding("ship", begun, end.get_future().share());
    Waiting first("pack");
    Waiting next("bill");
    nim::mt::ThreadPool orders("orders", 1, 0, 0, 0, 0, 10);
    nim::mt::ThreadPool idle("idle", 2, 0, 0, 0, 0, 3);
    orders.add(holding);
    begun.get_future().wait();
    orders.add(first);
    orders.add(next);

    std::promise<void> started;
    std::promise<void> stop;
    Holding carrying("carry", started, stop.get_future().share());
    nim::mt::Thread courier(carrying, true, "courier");
    courier.start();
    started.get_future().wait();

    RX_String text("two words");
    nim::mem::RcoRef<Ticket> noTicket;
    nim::mem::ObjectHolder owning(new Ticket, nim::mem::ObjectHolder::SM_ACQUIRE_AND_DEREF);
    nim::mem::ObjectHolder borrowing(ticket.get(), nim::mem::ObjectHolder::SM_NO_ACTION);
    nim::io::Properties properties;
    properties.setProperty("color", "red");
    properties.setProperty("size", "12\tcm");
    nim::type::CompositeString composite("a+b+c", "+");
    nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
    const nim::sys::StackTrack inner("deliver()", "Orders", "subject", 7);
    const nim::sys::system_error error(2, "no file");
    const OrderError orderError;
    RX_Exception runtimeError(12, RX_String("/etc/file"));
    runtimeError.chain(13, RX_String("left"), RX_String("right"));
    const bool aborts = argc > 3 && std::string(argv[3]) == "--abort";
    awaitSleep();
    stopHere(text, ticket, noTicket, owning, borrowing, properties, composite, context, error, orderError,
             runtimeError, orders, aborts);

    end.set_value();
    stop.set_value();
    courier.join();
    orders.shutdown();
    idle.shutdown();

    // For the test of the probes.
    com_kor_dal_nim_log_control.setMaxFileSize(1);
    nim::mt::CriticalSection section;
    contend(section);
    nim::mt::ReaderWriterLock readerWriterLock;
    contend(readerWriterLock);
    return 0;
}
