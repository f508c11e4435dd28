#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    const int status = RUN_ALL_TESTS();
    // Of a library that is built to be perturbed: what the run can be had again with.
    const char* const seed = std::getenv("DALNIM_PERTURB_SEED");
    if (status != 0 && seed != nullptr) {
        std::cerr << "DALNIM_PERTURB_SEED=" << seed << std::endl;
    }
    return status;
}
