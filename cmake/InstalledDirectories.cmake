# CMake creates directories with the permissions that the umask of the installing user leaves, and files with fixed
# ones. These functions also give directories fixed ones, so that all users can read an installation. Directories that
# exist before the installation keep their permissions.

# The deepest directories that rules create without permissions of their own; also those above them are opened.
set(DALNIM_INSTALLED_DIRECTORIES
    ${CMAKE_INSTALL_BINDIR}
    ${CMAKE_INSTALL_LIBDIR}/cmake/dalnim
    ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    ${CMAKE_INSTALL_INCLUDEDIR}/dalnim/journal
    ${CMAKE_INSTALL_DOCDIR}
    ${CMAKE_INSTALL_MANDIR}/man1
    ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions
    ${CMAKE_INSTALL_DATAROOTDIR}/dalnim
    ${CMAKE_INSTALL_DATAROOTDIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
    ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions)

# Records which directories are missing. Must precede the first install() rule.
function(dalnim_find_missing_directories)
    install(CODE "set(dalnim_directories \"${DALNIM_INSTALLED_DIRECTORIES}\")" ALL_COMPONENTS)
    install(CODE [[
        set(dalnim_missing_directories "")
        foreach(directory IN LISTS dalnim_directories)
            if(NOT IS_ABSOLUTE "${directory}")
                set(directory "${CMAKE_INSTALL_PREFIX}/${directory}")
            endif()
            cmake_path(SET directory NORMALIZE "$ENV{DESTDIR}${directory}")
            while(NOT EXISTS "${directory}")
                list(APPEND dalnim_missing_directories "${directory}")
                cmake_path(GET directory PARENT_PATH directory)
            endwhile()
        endforeach()]] ALL_COMPONENTS)
endfunction()

# Opens those that now exist. Must follow the last install() rule.
function(dalnim_open_created_directories)
    install(CODE [[
        foreach(directory IN LISTS dalnim_missing_directories)
            if(IS_DIRECTORY "${directory}")
                file(CHMOD "${directory}" PERMISSIONS
                    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
            endif()
        endforeach()]] ALL_COMPONENTS)
endfunction()
