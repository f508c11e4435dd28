# All code compiles without warnings. They are errors only with the supported compilers: newer ones may warn about
# more. Projects that embed this one decide for themselves.
add_library(dalnim_warnings INTERFACE)
target_compile_options(dalnim_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-error=maybe-uninitialized>)
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_COMPILE_WARNING_AS_ERROR)
    if((CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
       OR (CMAKE_CXX_COMPILER_ID STREQUAL Clang AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 20))
        set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
    endif()
endif()
