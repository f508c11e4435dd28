# dalnim::host and dalnim::plugin: for programs that load plug-ins, and for the plug-ins. With the shared library, both
# are dalnim::dalnim. A process must have one copy of the library: with the static one, the program contains all of it
# and exports it, and a plug-in is linked without it.
add_library(dalnim_host INTERFACE)
add_library(dalnim::host ALIAS dalnim_host)
target_link_libraries(dalnim_host INTERFACE dalnim::dalnim)
add_library(dalnim_plugin INTERFACE)
add_library(dalnim::plugin ALIAS dalnim_plugin)
set_target_properties(dalnim_host PROPERTIES EXPORT_NAME host)
set_target_properties(dalnim_plugin PROPERTIES EXPORT_NAME plugin)
if(BUILD_SHARED_LIBS)
    target_link_libraries(dalnim_plugin INTERFACE dalnim::dalnim)
else()
    # CMake passes the archive's path in the option below, but does not quote dollar signs there.
    if(PROJECT_BINARY_DIR MATCHES "\\$")
        message(FATAL_ERROR "Static libraries do not support paths with $: move the build")
    endif()
    # An option, not a link item with the feature WHOLE_ARCHIVE, so that libraries of the program may link
    # dalnim::dalnim as well: options precede the libraries, so the archive is complete when it is read again.
    target_link_options(dalnim_host INTERFACE -Wl,--export-dynamic
        "SHELL:-Wl,--whole-archive \"$<TARGET_FILE:dalnim::dalnim>\" -Wl,--no-whole-archive")
    target_compile_features(dalnim_plugin INTERFACE cxx_std_17)
    target_include_directories(dalnim_plugin INTERFACE
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_link_libraries(dalnim_plugin INTERFACE Threads::Threads)
endif()
