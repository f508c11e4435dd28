# The target `reference` generates the API reference, with diagrams, in reference/html of the build directory.
find_program(DALNIM_DOXYGEN doxygen)
find_program(DALNIM_DOT dot)
mark_as_advanced(DALNIM_DOXYGEN DALNIM_DOT)

if(DALNIM_DOXYGEN AND DALNIM_DOT)
    set(DALNIM_REFERENCE_DIR ${PROJECT_BINARY_DIR}/reference)
    set(doxyfile ${DALNIM_REFERENCE_DIR}/Doxyfile)
    configure_file(${PROJECT_SOURCE_DIR}/docs/reference/Doxyfile.in ${doxyfile} @ONLY)
    add_custom_target(reference
        # Removes the pages of classes that no longer exist.
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${DALNIM_REFERENCE_DIR}/html
        COMMAND ${DALNIM_DOXYGEN} ${doxyfile}
        COMMENT "Generating the reference: ${DALNIM_REFERENCE_DIR}/html/index.html"
        VERBATIM)
endif()
