include(CMakePackageConfigHelpers)

# One component for each Debian package: runtime, dev and doc here, tools in tools/.
install(TARGETS dalnim dalnim_host dalnim_plugin EXPORT dalnimTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/dalnim ${PROJECT_SOURCE_DIR}/qv
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
    FILES_MATCHING PATTERN "*.hpp" PATTERN "*.h"
    PATTERN "src" EXCLUDE)

install(EXPORT dalnimTargets NAMESPACE dalnim::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dalnim COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/dalnimConfig.cmake.in
    ${PROJECT_BINARY_DIR}/dalnimConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dalnim)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/dalnimConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/dalnimConfig.cmake ${PROJECT_BINARY_DIR}/dalnimConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/dalnim COMPONENT dev)

# What programs with the static library are linked with: C programs with the C++ library, and see StaticLibrary.cmake.
set(DALNIM_PC_STATIC -lstdc++)
if("c++" IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    set(DALNIM_PC_STATIC -lc++)
endif()
if(NOT BUILD_SHARED_LIBS)
    string(APPEND DALNIM_PC_STATIC " -Wl,--eh-frame-hdr")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/dalnim.pc.in ${PROJECT_BINARY_DIR}/dalnim.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/dalnim.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The documents, and the sources that they link to. The reference is installed if it was generated.
if(PROJECT_IS_TOP_LEVEL)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
        PATTERN "docs/reference" EXCLUDE PATTERN ".clang-tidy" EXCLUDE)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference COMPONENT doc OPTIONAL
        PATTERN "*.md5" EXCLUDE PATTERN "*.map" EXCLUDE)
    install(FILES
        ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)

    # Removes the files of the last installation from this build.
    configure_file(${CMAKE_CURRENT_LIST_DIR}/uninstall.cmake.in ${PROJECT_BINARY_DIR}/uninstall.cmake @ONLY)
    add_custom_target(uninstall
        COMMAND ${CMAKE_COMMAND} -P ${PROJECT_BINARY_DIR}/uninstall.cmake USES_TERMINAL VERBATIM)
endif()
