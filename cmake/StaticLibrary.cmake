# Constructs the static objects of the archive before those of the program, and in the order of the shared library, in
# which fork handlers depend on each other. The linker runs constructors in the order of the objects in its command, in
# which programs come before archives, and it takes the objects of archives in the order of the references to them.
# Constructors with a priority run before all others. Their section is renamed instead of giving each object a priority,
# which references such as com_kor_dal_nim_log_control cannot have.
if(NOT CMAKE_OBJCOPY)
    message(FATAL_ERROR "The static library requires objcopy, which was not found: install binutils")
endif()
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/linker/objects.txt
    CONTENT "$<JOIN:$<TARGET_OBJECTS:dalnim>,\n>\n" TARGET dalnim)
add_custom_command(TARGET dalnim POST_BUILD
    COMMAND ${CMAKE_COMMAND} -DARCHIVE=$<TARGET_FILE:dalnim> -DOBJECTS=${PROJECT_BINARY_DIR}/linker/objects.txt
        -DOBJCOPY=${CMAKE_OBJCOPY} -DAR=${CMAKE_AR} -P ${PROJECT_SOURCE_DIR}/cmake/order-constructors.cmake
    VERBATIM)
# The early constructors unwind the stack. In a program that is linked with -static, frames are registered after them,
# unless the linker creates the table in which the unwinder finds them by itself.
target_link_options(dalnim INTERFACE -Wl,--eh-frame-hdr)
# Objects for link-time optimisation have no such section yet.
set_target_properties(dalnim PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
if(CMAKE_CXX_FLAGS MATCHES "-flto")
    target_compile_options(dalnim PRIVATE -fno-lto)
endif()
