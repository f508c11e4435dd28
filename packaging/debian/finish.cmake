# Run by CPack after it has installed the components and before it packs them. Adds to each package the files that
# Debian requires: copyright, change log, and compressed manual pages. Moves the debug information of the binaries to
# packages of their own.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

function(dalnim_compress file)
    execute_process(COMMAND gzip --best --no-name --force ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
    set(doc ${root}/share/doc/${package})
    if(NOT IS_DIRECTORY ${root})
        message(FATAL_ERROR "${root} does not exist")
    endif()

    file(MAKE_DIRECTORY ${doc})
    file(COPY_FILE ${CPACK_DALNIM_SOURCE}/packaging/debian/copyright ${doc}/copyright)
    file(COPY_FILE ${CPACK_DALNIM_SOURCE}/CHANGELOG.md ${doc}/changelog)
    file(WRITE ${doc}/changelog.Debian
"dalnim (${version}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}: changelog.gz describes the changes.

 -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${date}
")
    file(GLOB pages ${root}/share/man/man*/*.[1-9])
    foreach(file IN ITEMS ${doc}/changelog ${doc}/changelog.Debian LISTS pages)
        dalnim_compress(${file})
    endforeach()
    file(MAKE_DIRECTORY ${root}/share/lintian/overrides)
    file(WRITE ${root}/share/lintian/overrides/${package}
"# This package is not in Debian, so there is no request that its first version could close.
${package}: initial-upload-closes-no-bugs
")
    file(GLOB_RECURSE files LIST_DIRECTORIES false ${doc}/* ${root}/share/lintian/*)
    file(CHMOD ${files} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()

# Those with binaries.
set(components ${CPACK_COMPONENTS_ALL})
list(FILTER components INCLUDE REGEX "^(runtime|tools|journal)$")
foreach(component IN LISTS components)
    string(TOUPPER ${component} name)
    execute_process(
        COMMAND ${CPACK_DALNIM_SOURCE}/packaging/debian/build-dbgsym ${CPACK_TEMPORARY_DIRECTORY}/${component}
            ${CPACK_DEBIAN_${name}_PACKAGE_NAME} ${version} ${CPACK_DEBIAN_PACKAGE_MAINTAINER} ${CPACK_DALNIM_BINARY}
        COMMAND_ERROR_IS_FATAL ANY)
endforeach()
