#include <dalnim/nim.hpp>

#include <fstream>
#include <future>
#include <iostream>
#include <stdexcept>
#include <thread>

using namespace com::kor::dal::nim;

namespace {

/** Runs any callable as a task; its result or exception is a future. */
template <class Function>
class Call : public mt::Task
{
public:
    explicit Call(Function function) : Task(nullptr, "Call"), work(std::move(function)) {}

    void run() override
    {
        work();
    }
    auto result()
    {
        return work.get_future();
    }

private:
    std::packaged_task<std::invoke_result_t<Function&>()> work;
};

/** The user being served: the token of the security context. */
class User : public mem::RefCntObject
{
public:
    explicit User(const String& user_name) : name(user_name) {}

    const String name;
};

String user()
{
    const type::SecurityContextRef security = type::SecurityContext::current();
    return security ? dynamic_cast<const User&>(*security->token()).name : "nobody";
}

}

int main()
{
    com_kor_dal_nim_log_control.setOutputMask(log::Mask_SEVERITY);
    const type::ContextScope scope(type::SecurityContext::opCreate, type::ContextScope::opRemove,
                                   type::SecurityContext::KEY, 0, type::ContainerContext::current());
    type::SecurityContext::current()->token(new User("Ada"));

    // A std::thread may use the whole library, but does not receive the context.
    std::thread([] { NIM_LOG(Severity_NOTICE) << "std::thread serves " << user(); }).join();

    Call serve([] { return user(); });
    mt::Thread thread(serve);
    thread.start();
    thread.join();
    std::cerr << "mt::Thread serves " << serve.result().get() << '\n';

    // The pool discards exceptions of tasks, so the task stores its own.
    Call fail([]() -> int { throw std::domain_error("nothing is left"); });
    mt::ThreadPool pool("pool", 2, 0, 0, 0, 0, 16);
    pool.add(fail);
    try {
        fail.result().get();
    } catch (const std::domain_error& failure) {
        std::cerr << "the pool's task: " << failure.what() << '\n';
    }
    pool.shutdown();

    // A second log, independent of the default logger.
    log::Write audit;
    audit.setPath("audit.log");
    audit.setOutputMask(log::Mask_MODULENAME);
    NIM_LOG_TO(log::Module::getInstance("till", audit), Severity_NOTICE) << user() << " opens it";
    std::cerr << "audit.log: " << std::ifstream("audit.log").rdbuf();
}
