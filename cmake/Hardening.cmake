# What is shipped is hardened: overrun stack frames and buffers of known size end the process, and the
# relocations are read-only before the first line runs. The checks of the C library need an optimised
# build, and would hide calls from the sanitizers.
function(dalnim_harden target)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
    target_compile_options(${target} PRIVATE -fstack-protector-strong -fstack-clash-protection)
    if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT DALNIM_SANITIZE)
        target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
endfunction()
