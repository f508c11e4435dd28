# Everything that is built here builds without a warning.
add_library(dalnim_warnings INTERFACE)
target_compile_options(dalnim_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-error=maybe-uninitialized>)
