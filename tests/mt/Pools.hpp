#ifndef TESTS_MT_POOLS_HPP
#define TESTS_MT_POOLS_HPP

#include "Work.hpp"

#include <dalnim/mt/ThreadPool.hpp>
#include <qv/Threads.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace mttest {

inline std::unique_ptr<nim::mt::ThreadPool> makePool(unsigned int threads, unsigned int pending)
{
    return std::make_unique<nim::mt::ThreadPool>(nullptr, threads, 0U, 0U, 0U, 0U, pending);
}

/** Tasks that occupy a number of workers until end(). */
class Occupation
{
public:
    Occupation(nim::mt::ThreadPool& pool, int workers)
    {
        for (int i = 0; i < workers; ++i) {
            auto entered = std::make_unique<qvtest::Gate>();
            qvtest::Gate& gate = *entered;
            tasks.push_back(std::make_unique<OwnTask>([this, &gate] {
                gate.open();
                leave.pass();
            }));
            EXPECT_TRUE(pool.add(*tasks.back()));
            gate.pass();
            gates.push_back(std::move(entered));
        }
    }
    ~Occupation()
    {
        end();
    }

    void end()
    {
        leave.open();
        for (const auto& task : tasks) {
            awaitEnd(*task);
        }
    }

    qvtest::Gate leave;
    std::vector<std::unique_ptr<qvtest::Gate>> gates;
    std::vector<std::unique_ptr<OwnTask>> tasks;
};
}

#endif
