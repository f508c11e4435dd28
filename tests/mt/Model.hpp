#ifndef TESTS_MT_MODEL_HPP
#define TESTS_MT_MODEL_HPP

#include <support/LongRun.hpp>

#include <cstdlib>
#include <random>
#include <string>

namespace mttest {

/** Returns the number of operations of a model test. */
inline int modelOperations()
{
    return support::isLongRun() ? 1000000 : 100000;
}

/** The seed of a model test: random, unless the environment sets the seed of a run to repeat. */
class ModelSeed
{
public:
    /** Returns a generator for one of the test's threads. */
    std::mt19937 random(int thread = 0) const
    {
        return std::mt19937(seed + static_cast<unsigned int>(thread));
    }

    /** Returns the hint for the message of a failed test. */
    std::string text() const
    {
        return "repeat with DALNIM_TEST_SEED=" + std::to_string(seed);
    }

private:
    static unsigned int drawn()
    {
        const char* const given = std::getenv("DALNIM_TEST_SEED");
        return given != nullptr ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10))
                                : std::random_device()();
    }

    const unsigned int seed = drawn();
};

}

#endif
