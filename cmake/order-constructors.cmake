# Creates ARCHIVE from the objects that are listed in the file OBJECTS, with constructors that run in this order.
set(directory ${ARCHIVE}.objects)
file(REMOVE_RECURSE ${directory})
file(MAKE_DIRECTORY ${directory})
file(STRINGS ${OBJECTS} objects)
# Lower priorities are those of the C++ library.
set(priority 1000)
set(members)
foreach(object IN LISTS objects)
    get_filename_component(name ${object} NAME)
    execute_process(COMMAND ${OBJCOPY} --rename-section .init_array=.init_array.0${priority}
        ${object} ${directory}/${priority}-${name} COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND members ${priority}-${name})
    math(EXPR priority "${priority} + 1")
endforeach()
file(REMOVE ${ARCHIVE})
execute_process(COMMAND ${AR} qcs ${ARCHIVE} ${members} WORKING_DIRECTORY ${directory} COMMAND_ERROR_IS_FATAL ANY)
file(REMOVE_RECURSE ${directory})
