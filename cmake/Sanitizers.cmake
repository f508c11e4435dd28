# Sanitizers reach every target, the library and its users alike: half an instrumented process
# reports what is not there and misses what is.
if(DALNIM_SANITIZE)
    add_compile_options(-fsanitize=${DALNIM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${DALNIM_SANITIZE})
    add_compile_definitions(DALNIM_SANITIZED=1)
endif()
