# Sanitizers apply to all targets: a partly instrumented process has false positives and misses errors.
if(DALNIM_SANITIZE)
    add_compile_options(-fsanitize=${DALNIM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DALNIM_SANITIZE})
    add_compile_definitions(DALNIM_SANITIZED=1)
    if(DALNIM_SANITIZE_IGNORED)
        # Its hash is part of the compiler command, so that build and compiler cache notice a changed list.
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${DALNIM_SANITIZE_IGNORED})
        file(SHA1 ${DALNIM_SANITIZE_IGNORED} ignored_hash)
        add_compile_options(-fsanitize-ignorelist=${DALNIM_SANITIZE_IGNORED})
        add_compile_definitions(DALNIM_SANITIZE_IGNORED_HASH=0x${ignored_hash})
    endif()
endif()
