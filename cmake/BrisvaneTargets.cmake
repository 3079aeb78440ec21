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

# brisvane_target_defaults(<target>): warnings as errors and hardening for our own code, and
# the generated version header.
function(brisvane_target_defaults target)
    target_compile_options(${target} PRIVATE ${BRISVANE_WARNINGS} -fstack-protector-strong)
    if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
        target_compile_definitions(${target} PRIVATE _FORTIFY_SOURCE=2)
    endif()
    target_include_directories(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated)
    set_target_properties(${target} PROPERTIES AUTOMOC ON)
endfunction()

# brisvane_library(<name> SOURCES ... [PUBLIC_HEADERS ...] [DEPS ...] [PRIVATE_DEPS ...]): one
# source folder, one library.
#
# Other targets see only the PUBLIC_HEADERS, and include them by the folder's path from the
# project root ("key_exchange/key_exchange.h"): each library gets an include root of its own
# under the build tree's include/, holding links to exactly those headers. Every other header
# stays private to the folder, whose own sources include headers of the folder by their bare
# name. A target reaches a library's headers only by linking the library.
function(brisvane_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_HEADERS;DEPS;PRIVATE_DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES} ${ARG_PUBLIC_HEADERS})
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR}
               OUTPUT_VARIABLE folder)
    set(include_root ${PROJECT_BINARY_DIR}/include/${name})
    # Laid out afresh at every configure, so a header taken off the list is gone from it too.
    file(REMOVE_RECURSE ${include_root})
    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${header})
            message(FATAL_ERROR "${name}: no public header ${folder}/${header}")
        endif()
        cmake_path(GET header PARENT_PATH subfolder)
        file(MAKE_DIRECTORY ${include_root}/${folder}/${subfolder})
        file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${header} ${include_root}/${folder}/${header}
             SYMBOLIC)
    endforeach()
    if(ARG_PUBLIC_HEADERS)
        target_include_directories(${name} PUBLIC ${include_root})
    endif()
    target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    brisvane_target_defaults(${name})
endfunction()

# brisvane_internals(<target> <folder>...): lets a test or a fuzz target include the private
# headers of the source folders, by their bare name. Kept for the few tests that must reach
# behind a library's public headers, and visible in their CMakeLists.txt.
function(brisvane_internals target)
    foreach(folder IN LISTS ARGN)
        target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/${folder})
    endforeach()
endfunction()
