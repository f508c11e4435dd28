# Run by cpack at its start. What programs need of other packages is looked up here and not by cpack itself,
# which would also have the library's package run ldconfig in scripts of its own, where a trigger is due.
set(work ${CPACK_DALNIM_BINARY}/debian/dependencies)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work}/debian)
file(WRITE ${work}/debian/control "")
# The library is not installed where this runs: its own file tells its package.
file(COPY_FILE ${CPACK_DALNIM_BINARY}/debian/shlibs ${work}/debian/shlibs.local)

function(dalnim_dependencies variable)
    execute_process(
        COMMAND dpkg-shlibdeps -O -l${CPACK_DALNIM_BINARY} ${ARGN}
        WORKING_DIRECTORY ${work} OUTPUT_VARIABLE found ERROR_VARIABLE complaints COMMAND_ERROR_IS_FATAL ANY)
    string(STRIP "${found}" found)
    if(NOT found MATCHES "^shlibs:Depends=(.*)$")
        message(FATAL_ERROR "dpkg-shlibdeps: ${found}\n${complaints}")
    endif()
    set(${variable} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

dalnim_dependencies(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${CPACK_DALNIM_BINARY}/libdalnim.so)
set(tools nimlog nimprops nimxml)
list(TRANSFORM tools REPLACE "(.+)" "${CPACK_DALNIM_BINARY}/tools/\\1/\\1")
dalnim_dependencies(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${tools})
