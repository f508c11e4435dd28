# Run by CPack at its start. Computes the dependencies of the programs. CPack could do that itself, but would then
# also add maintainer scripts that run ldconfig to the library's package, which has a trigger for that.
set(work ${CPACK_DALNIM_BINARY}/debian/dependencies)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work}/debian)
file(WRITE ${work}/debian/control "")
# The library is not installed here, so this file names its package.
file(COPY_FILE ${CPACK_DALNIM_BINARY}/debian/shlibs ${work}/debian/shlibs.local)

function(dalnim_dependencies variable)
    execute_process(
        COMMAND dpkg-shlibdeps -O -l${CPACK_DALNIM_BINARY} ${ARGN}
        WORKING_DIRECTORY ${work} OUTPUT_VARIABLE found ERROR_VARIABLE errors COMMAND_ERROR_IS_FATAL ANY)
    string(STRIP "${found}" found)
    if(NOT found MATCHES "^shlibs:Depends=(.*)$")
        message(FATAL_ERROR "dpkg-shlibdeps: ${found}\n${errors}")
    endif()
    set(${variable} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()

dalnim_dependencies(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ${CPACK_DALNIM_BINARY}/libdalnim.so)
if(CPACK_COMPONENTS_ALL MATCHES journal)
    dalnim_dependencies(CPACK_DEBIAN_JOURNAL_PACKAGE_DEPENDS ${CPACK_DALNIM_BINARY}/journal/libdalnim-journal.so)
endif()
set(tools nimlog nimprops nimxml)
list(TRANSFORM tools REPLACE "(.+)" "${CPACK_DALNIM_BINARY}/tools/\\1/\\1")
dalnim_dependencies(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${tools})
