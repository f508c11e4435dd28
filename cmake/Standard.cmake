# The C++ standard of this build: 17, or a newer one that the user selects. Users of the installed library need 17.
if(NOT CMAKE_CXX_STANDARD)
    set(CMAKE_CXX_STANDARD 17)
elseif(NOT CMAKE_CXX_STANDARD MATCHES "^(17|2[0-9])$")
    # A project that embeds this one may use an older standard in its own code.
    if(PROJECT_IS_TOP_LEVEL)
        message(FATAL_ERROR "dalnim needs C++17 or newer, not CMAKE_CXX_STANDARD=${CMAKE_CXX_STANDARD}")
    endif()
    set(CMAKE_CXX_STANDARD 17)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
