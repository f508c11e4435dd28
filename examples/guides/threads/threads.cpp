#include <dalnim/nim.hpp>

#include <cerrno>
#include <iostream>
#include <list>

using namespace com::kor::dal::nim;

namespace {

/** The user being served: passed on with the context. */
class User : public mem::RefCntObject
{
public:
    explicit User(const String& user_name) : name(user_name) {}

    const String name;
};

/** Runs on its own thread until its interrupt bit is set. */
class Watch : public mt::Thread
{
public:
    static constexpr unsigned long STOP = 1;

    Watch() : Thread(true, "watch") {}

    void run() override
    {
        while ((interrupted() & STOP) == 0) {
            waitForStateChange(60000);
        }
        throw sys::system_error(EINTR, "the watch was stopped");
    }
};

/** Work for a pool, which would discard an exception: so the task stores its result. */
class Order : public mt::Task
{
public:
    explicit Order(int order_number) : Task(nullptr, "Order"), number(order_number) {}

    void run() override
    {
        const auto& user = dynamic_cast<const User&>(*type::SecurityContext::current()->token());
        result = "order " + std::to_string(number) + " for " + user.name + " on "
                 + mt::ThreadPool::currentPool()->name();
    }

    const int number;
    String result = "not run";
};

}

int main()
{
    Watch watch;
    watch.start();
    watch.interrupt(Watch::STOP);
    const std::exception* const failure = watch.join();
    std::cout << watch.name() << " ended: " << failure->what() << '\n';

    // Until the end of the block, this thread and the work that it starts serve that user.
    std::list<Order> orders;
    mt::ThreadPool pool("counter", 2, 0, 0, 0, 0, 100);
    {
        const type::ContextScope scope(type::SecurityContext::opCreate, type::ContextScope::opRemove,
                                       type::SecurityContext::KEY, 0, type::ContainerContext::current());
        type::SecurityContext::current()->token(new User("Ada"));
        for (int number = 1; number <= 3; ++number) {
            pool.add(orders.emplace_back(number));
        }
    }
    std::cout << "outside: " << (type::SecurityContext::current() ? "a user" : "no user") << '\n';

    pool.shutdown(true);
    for (const Order& order : orders) {
        std::cout << order.result << '\n';
    }
}
