# Compiler settings shared by every target of the project.

set(BRISVANE_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-qual
    -Wformat=2 -Wimplicit-fallthrough -Werror)

set(BRISVANE_SANITIZER_FLAGS "")
if(BRISVANE_SANITIZE)
    list(APPEND BRISVANE_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
         -fno-omit-frame-pointer)
endif()
if(BRISVANE_FUZZ)
    list(APPEND BRISVANE_SANITIZER_FLAGS -fsanitize=fuzzer-no-link,address,undefined
         -fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()

if(BRISVANE_SANITIZER_FLAGS)
    add_compile_options(${BRISVANE_SANITIZER_FLAGS})
    add_link_options(${BRISVANE_SANITIZER_FLAGS})
endif()

# brisvane_target_defaults(<target>): warnings as errors and hardening for our own code.
function(brisvane_target_defaults target)
    target_compile_options(${target} PRIVATE ${BRISVANE_WARNINGS} -fstack-protector-strong)
    if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
        target_compile_definitions(${target} PRIVATE _FORTIFY_SOURCE=2)
    endif()
    set_target_properties(${target} PROPERTIES AUTOMOC ON)
endfunction()

# brisvane_library(<name> SOURCES ... [DEPS ...]): one source folder, one library.
function(brisvane_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)
    target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    brisvane_target_defaults(${name})
endfunction()
