# The Debian packages, one for each component, built by packaging/build-deb. They require a build configured for
# /usr, which the loader searches by default and where libraries are in the multiarch directory.
set(DALNIM_PACKAGE_REVISION 1 CACHE STRING "Revision of the Debian packages of one version")
set(DALNIM_PACKAGE_MAINTAINER "dalnim maintainers <maintainers@dalnim.example>" CACHE STRING
    "Maintainer of the Debian packages, as 'Name <address>'")

set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(package_version ${PROJECT_VERSION}-${DALNIM_PACKAGE_REVISION})
set(library_package libdalnim${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dalnim)
set(CPACK_PACKAGE_VENDOR "the dalnim authors")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL runtime dev tools doc)
if(TARGET dalnim_journal)
    list(APPEND CPACK_COMPONENTS_ALL journal journaldev)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# finish.cmake strips the binaries, whose debug information has packages of its own.
set(CPACK_STRIP_FILES OFF)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Run before packing: they compute the dependencies of the programs, add the files that only packages have, and build the
# packages with the debug information.
set(CPACK_PROJECT_CONFIG_FILE ${debian}/dependencies.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${debian}/finish.cmake)

set(CPACK_DEBIAN_PACKAGE_SOURCE dalnim)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${DALNIM_PACKAGE_REVISION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${DALNIM_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The first line of each description is its summary; it replaces the summary of the project.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(about
"dalnim provides logging (filtered by severity and module, to files that rotate
by size), exceptions with stack traces, threads, tasks and pools with a context
that follows the work, reference-counted objects, properties files with
includes, plug-ins, encodings and a parser for a small XML subset.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${debian}/triggers ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"foundation classes for long-running server processes
${about}

This package contains the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libdalnim-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library_package} (= ${package_version})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "dalnim-doc, gdb")
set(CPACK_DEBIAN_DEV_DESCRIPTION
"foundation classes for server processes - development files
${about}

This package contains the headers, the files for CMake and pkg-config, and an
extension for gdb.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME dalnim-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "dalnim-doc, bpftrace")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"foundation classes for server processes - tools
${about}

This package contains nimlog, which reads, follows, filters and counts the
records of a rotated log; nimprops, which checks, prints and compares
properties files; nimxml, which prints and checks XML documents; and scripts
for bpftrace.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME dalnim-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION
"foundation classes for server processes - guides and examples
${about}

This package contains the guides, the reference of the public headers, and the
sources of the guides' programs and of an example host, which build against
libdalnim-dev.")

set(journal_package libdalnim-journal${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_JOURNAL_PACKAGE_NAME ${journal_package})
set(CPACK_DEBIAN_JOURNAL_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_JOURNAL_PACKAGE_CONTROL_EXTRA
    ${debian}/triggers ${PROJECT_BINARY_DIR}/debian/journal/shlibs)
set(CPACK_DEBIAN_JOURNAL_DESCRIPTION
"foundation classes for server processes - systemd journal
${about}

This package contains a library with a logger for the systemd journal.")

set(CPACK_DEBIAN_JOURNALDEV_PACKAGE_NAME libdalnim-journal-dev)
set(CPACK_DEBIAN_JOURNALDEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_JOURNALDEV_PACKAGE_DEPENDS
    "${journal_package} (= ${package_version}), libdalnim-dev (= ${package_version})")
set(CPACK_DEBIAN_JOURNALDEV_PACKAGE_SUGGESTS dalnim-doc)
set(CPACK_DEBIAN_JOURNALDEV_DESCRIPTION
"foundation classes for server processes - systemd journal, development
${about}

This package contains the header of the logger for the systemd journal, and
the files for CMake and pkg-config.")

set(shlibs_library libdalnim)
configure_file(${debian}/shlibs.in ${PROJECT_BINARY_DIR}/debian/shlibs @ONLY)
set(shlibs_library libdalnim-journal)
configure_file(${debian}/shlibs.in ${PROJECT_BINARY_DIR}/debian/journal/shlibs @ONLY)
# CPack passes only variables that start with CPACK_ to the scripts above.
set(CPACK_DALNIM_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_DALNIM_BINARY ${PROJECT_BINARY_DIR})
include(CPack)
