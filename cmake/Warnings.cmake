# Everything that is built here builds without a warning. Where the tests are built each one is an error; who
# only installs may have a compiler that knows more of them.
add_library(dalnim_warnings INTERFACE)
target_compile_options(dalnim_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-error=maybe-uninitialized>)
if(NOT DEFINED CMAKE_COMPILE_WARNING_AS_ERROR)
    set(CMAKE_COMPILE_WARNING_AS_ERROR ${DALNIM_BUILD_TESTS})
endif()
