include(CMakePackageConfigHelpers)

# The components are those of the packages: what runs programs, what builds them, and what is read. The
# tools add one of their own.
install(TARGETS dalnim EXPORT dalnimTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
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

file(RELATIVE_PATH DALNIM_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/dalnim.pc.in ${PROJECT_BINARY_DIR}/dalnim.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/dalnim.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
