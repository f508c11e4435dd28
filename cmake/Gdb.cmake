# The gdb extension: its scripts, and a file that gdb loads together with the library. gdb searches for that file beside
# the library and, under the library's full path, in its own auto-load directory. Files there need no permission of
# the user, but only packages may write there. For other prefixes the file is installed beside the library; gdb then
# requires its directory in the auto-load safe-path.
set(gdb_sources ${PROJECT_SOURCE_DIR}/tools/gdb)
set(gdb_loader libdalnim.so.${PROJECT_VERSION}-gdb.py)

# In the build tree, for tests and for programs that are debugged there.
file(RELATIVE_PATH DALNIM_GDB_SCRIPT ${PROJECT_BINARY_DIR} ${gdb_sources}/nim.py)
configure_file(${gdb_sources}/libdalnim-gdb.py.in ${PROJECT_BINARY_DIR}/${gdb_loader} @ONLY)

if(NOT DALNIM_INSTALL)
    return()
endif()
install(DIRECTORY ${gdb_sources}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/dalnim/gdb COMPONENT dev
    FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
# For programs with the static library, users load the scripts by hand.
if(NOT BUILD_SHARED_LIBS)
    return()
endif()
file(RELATIVE_PATH DALNIM_GDB_SCRIPT ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_DATADIR}/dalnim/gdb/nim.py)
configure_file(${gdb_sources}/libdalnim-gdb.py.in ${PROJECT_BINARY_DIR}/installed/${gdb_loader} @ONLY)
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
    set(gdb_directory ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
else()
    set(gdb_directory ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES ${PROJECT_BINARY_DIR}/installed/${gdb_loader} DESTINATION ${gdb_directory} COMPONENT dev)
