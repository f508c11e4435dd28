#include "Valgrind.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

#include <pthread.h>
#ifdef DALNIM_TEST_VALGRIND_HEADER
#include <valgrind/valgrind.h>
#endif

namespace {

/**
 * A forked child lacks the threads of its parent but has their memory, which must not be reported as a leak.
 */
void leaveLeaksToTheParent()
{
#ifdef DALNIM_TEST_VALGRIND_HEADER
    VALGRIND_CLO_CHANGE("--leak-check=no");
#endif
}

}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    if (support::isUnderValgrind()) {
        pthread_atfork(nullptr, nullptr, leaveLeaksToTheParent);
    }
    const int status = RUN_ALL_TESTS();
    // For a library built with perturbation: prints how to repeat the run.
    const char* const seed = std::getenv("DALNIM_PERTURB_SEED");
    if (status != 0 && seed != nullptr) {
        std::cerr << "DALNIM_PERTURB_SEED=" << seed << std::endl;
    }
    return status;
}
