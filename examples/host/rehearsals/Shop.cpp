// A plug-in for the rehearsals of docs/guides/incidents.md. Three of its operations contain a mistake, as
// programs do: "price" crashes if there is no such article, "order" and "refund" block each other, and "pay"
// floods the log while the bank does not answer. The comments name the mistakes; the guide finds them without
// the source.

#include "../plugins/PluginModule.hpp"
#include "../plugins/Service.hpp"

#include <dalnim/nim.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace nimhost::shop {

namespace nim = com::kor::dal::nim;
using nim::String;
using std::chrono::steady_clock;

namespace {

PluginModule pluginModule("nimhost.plugin.shop");
nim::log::Module& com_kor_dal_nim_log_module = pluginModule;

constexpr std::chrono::milliseconds POLL_INTERVAL(1);
constexpr std::chrono::seconds START_LIMIT(10);

/** Its functions are not inlined: backtraces contain them, and no compiler detects the mistake. */
class Catalogue
{
public:
    /** Mistake: does not check whether there is such an article. */
    __attribute__((noinline)) String price(const String& name) const
    {
        const nim::sys::StackTrack track("price()", "Catalogue", "shop", __LINE__);
        return std::to_string(find(name)->cents) + " cents";
    }

private:
    struct Article
    {
        String unit;
        int cents;
    };

    /** Returns null if there is no such article. */
    __attribute__((noinline)) const Article* find(const String& name) const
    {
        const auto found = articles.find(name);
        return found != articles.end() ? &found->second : nullptr;
    }

    const std::map<String, Article> articles = {{"bread", {"loaf", 320}}, {"soap", {"bar", 150}}};
};

/** The money and the goods of the shop, each with a lock. */
class Books
{
public:
    /** Mistake: acquires the locks in another order than refund(). */
    void order()
    {
        const nim::sys::StackTrack track("order()", "Books", "shop", __LINE__);
        const std::lock_guard<nim::mt::CriticalSection> money(moneyLock);
        awaitOther();
        const std::lock_guard<nim::mt::CriticalSection> goods(goodsLock);
    }

    void refund()
    {
        const nim::sys::StackTrack track("refund()", "Books", "shop", __LINE__);
        const std::lock_guard<nim::mt::CriticalSection> goods(goodsLock);
        awaitOther();
        const std::lock_guard<nim::mt::CriticalSection> money(moneyLock);
    }

private:
    /** Waits until an order and a refund hold one lock each, so that a rehearsal does not depend on chance.
     */
    void awaitOther()
    {
        ++begun;
        const auto end = steady_clock::now() + START_LIMIT;
        while (begun < 2 && steady_clock::now() < end) {
            std::this_thread::sleep_for(POLL_INTERVAL);
        }
    }

    nim::mt::CriticalSection moneyLock;
    nim::mt::CriticalSection goodsLock;
    std::atomic<int> begun{0};
};

class Bank
{
public:
    /** Mistake: logs each of a thousand attempts per second. Fails after a time, since the bank never
     * answers. */
    static void pay(const String& order, unsigned int seconds)
    {
        const nim::sys::StackTrack track("pay()", "Bank", "shop", __LINE__);
        const auto end = steady_clock::now() + std::chrono::seconds(seconds);
        for (unsigned int attempt = 1; steady_clock::now() < end; ++attempt) {
            NIM_LOG(Severity_ERROR) << "cannot reach the bank" << nim::log::field("order", order)
                                    << nim::log::field("attempt", attempt);
            // The same without the mistake.
            NIM_LOG_EVERY_MS(Severity_WARNING, 1000) << "the bank does not answer";
            std::this_thread::sleep_for(POLL_INTERVAL);
        }
        throw nim::sys::system_error(ETIMEDOUT, "order " + order + " was not paid");
    }
};

class ShopService : public Service
{
public:
    String perform(const ServiceCall& call) const override
    {
        const nim::sys::StackTrack track("perform()", "ShopService", "shop", __LINE__);
        if (call.operation == "price") {
            return catalogue.price(call.argument("article"));
        }
        if (call.operation == "order") {
            books.order();
        } else if (call.operation == "refund") {
            books.refund();
        } else if (call.operation == "pay") {
            unsigned int seconds = 0;
            nim::type::NumberOps::parse(seconds, call.argument("seconds"));
            Bank::pay(call.argument("order"), seconds);
        } else {
            throw std::invalid_argument("unknown operation \"" + call.operation + "\" of the shop");
        }
        return "done";
    }

private:
    Catalogue catalogue;
    mutable Books books;
};

}

NIMHOST_PLUGIN(settings)
{
    static_cast<void>(settings);
    return new ShopService;
}

}
