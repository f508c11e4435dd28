# Sanitizers reach every target, the library and its users alike: half an instrumented process
# reports what is not there and misses what is.
if(DALNIM_SANITIZE)
    add_compile_options(-fsanitize=${DALNIM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DALNIM_SANITIZE})
    add_compile_definitions(DALNIM_SANITIZED=1)
    if(DALNIM_SANITIZE_IGNORED)
        # Neither the build nor a compiler cache looks into the list: its hash makes it part of the command.
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${DALNIM_SANITIZE_IGNORED})
        file(SHA1 ${DALNIM_SANITIZE_IGNORED} ignored_hash)
        add_compile_options(-fsanitize-ignorelist=${DALNIM_SANITIZE_IGNORED})
        add_compile_definitions(DALNIM_SANITIZE_IGNORED_HASH=0x${ignored_hash})
    endif()
endif()
