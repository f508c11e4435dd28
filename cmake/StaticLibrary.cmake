# Constructs the static objects of the archive before those of the program, as the dynamic linker does for the shared
# library: the linker runs constructors in the order of the objects in its command, in which programs come before
# archives. Constructors with a priority run before all others. The section is renamed instead of giving each object a
# priority, which references such as com_kor_dal_nim_log_control cannot have.
if(NOT CMAKE_OBJCOPY)
    message(FATAL_ERROR "The static library requires objcopy, which was not found: install binutils")
endif()
add_custom_command(TARGET dalnim POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --rename-section .init_array=.init_array.01000 $<TARGET_FILE:dalnim>
    VERBATIM)
# Objects for link-time optimisation have no such section yet.
set_target_properties(dalnim PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
if(CMAKE_CXX_FLAGS MATCHES "-flto")
    target_compile_options(dalnim PRIVATE -fno-lto)
endif()
