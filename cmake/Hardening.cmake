# Hardens a target that is shipped: stack overruns and overruns of buffers of known size abort the process, and
# relocations are read-only before any code runs. _FORTIFY_SOURCE needs an optimised build, and would hide
# calls from the sanitizers.
function(dalnim_harden target)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
    target_compile_options(${target} PRIVATE -fstack-protector-strong -fstack-clash-protection)
    if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT DALNIM_SANITIZE)
        target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
endfunction()
