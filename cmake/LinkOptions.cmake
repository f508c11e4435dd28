# dalnim_link_with_file(TARGET OPTION FILE): passes OPTION=FILE to the linker, where FILE is a file of the source tree.
# The compiler splits -Wl, at each comma, and CMake passes LINKER: as -Wl,. The path is therefore an argument of its own,
# and relative to the directory in which the linker runs: neither a comma nor a dollar sign of the tree's path gets
# into the command.
function(dalnim_link_with_file target option file)
    get_filename_component(name ${file} NAME)
    set(copy ${PROJECT_BINARY_DIR}/linker/${name})
    configure_file(${PROJECT_SOURCE_DIR}/${file} ${copy} COPYONLY)
    set(working_directory ${CMAKE_CURRENT_BINARY_DIR})
    if(CMAKE_GENERATOR MATCHES Ninja)
        set(working_directory ${CMAKE_BINARY_DIR})
    endif()
    file(RELATIVE_PATH path ${working_directory} ${copy})
    target_link_options(${target} PRIVATE "SHELL:-Xlinker \"${option}=${path}\"")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${copy})
endfunction()

# CMake passes the run-time search path as -Wl,-rpath,PATH, and the dynamic linker splits it at colons. Relative to the
# program, it contains nothing of the tree's path.
if(PROJECT_BINARY_DIR MATCHES "[,:]")
    set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
endif()
