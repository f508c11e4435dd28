#include "Valgrind.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

#include <pthread.h>
#ifdef DALNIM_TEST_VALGRIND_HEADER
#include <valgrind/valgrind.h>
#endif

namespace {

/** The child of a fork has not the threads, but their memory, for which it is not to be blamed at its end. */
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
    // Of a library that is built to be perturbed: what the run can be had again with.
    const char* const seed = std::getenv("DALNIM_PERTURB_SEED");
    if (status != 0 && seed != nullptr) {
        std::cerr << "DALNIM_PERTURB_SEED=" << seed << std::endl;
    }
    return status;
}
