#include "Listener.hpp"

#include <dalnim/xml/Parser.hpp>
#include <dalnim/xml/nim_opbparse.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using com::kor::dal::nim::xml::ConsumerRef;
using com::kor::dal::nim::xml::Parser;

constexpr int THREADS = 8;

/** Starts the threads of a test simultaneously. */
class Gate
{
public:
    void pass()
    {
        arrived.fetch_add(1);
        while (arrived.load() < THREADS) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<int> arrived{0};
};

template <class Work>
void onAllThreads(Work work)
{
    Gate gate;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&gate, work, i] {
            gate.pass();
            work(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}

// Under ctest, each test runs in its own process, so this is the first use of the parser.
TEST(ParserThreads, FirstUseMayBeConcurrent)
{
    std::atomic<int> good{0};
    onAllThreads([&good](int number) {
        const std::string tag = "t" + std::to_string(number);
        test::ListenerRef listener(new test::Listener);
        ConsumerRef consumer(listener);
        Parser parser(consumer);
        parser.parse("<" + tag + " k='1'>x</" + tag + ">", number);
        const std::vector<std::string> expected = {"begin " + tag + " " + tag + " k=[1]",
                                                   "data " + tag + " " + tag + " [x]",
                                                   "end " + tag + " " + tag};
        good += listener->events() == expected && listener->getDocumentId() == number ? 1 : 0;
    });
    EXPECT_EQ(THREADS, good.load());
}

TEST(ParserThreads, ParsersOfDifferentThreadsAreIndependent)
{
    std::atomic<int> good{0};
    onAllThreads([&good](int number) {
        test::ListenerRef listener(new test::Listener);
        ConsumerRef consumer(listener);
        Parser parser(consumer);
        std::string attributes;
        for (int i = 0; i <= number * 10; ++i) {
            attributes += " k" + std::to_string(i) + "='&#65;'";
        }
        bool same = true;
        for (int round = 0; round < 50; ++round) {
            listener->clear();
            parser.parse("<a" + attributes + "><b/>" + std::to_string(round) + "</a>", round);
            same = same && listener->events().size() == 5
                   && listener->events()[3] == "data a a [" + std::to_string(round) + "]";
        }
        good += same ? 1 : 0;
    });
    EXPECT_EQ(THREADS, good.load());
}
