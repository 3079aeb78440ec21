# cmake -D LINK_REPORT=<file> -D READELF=<readelf> -D PROGRAMS=<program;...> -P without_widgets.cmake
#
# Fails when the configure step found a link from a Widgets-free target to Qt Widgets (the
# report holds one chain of links per line), or when one of the programs needs the library.

file(READ ${LINK_REPORT} chains)
if(NOT chains STREQUAL "")
    message(FATAL_ERROR "These links reach Qt Widgets:\n${chains}")
endif()

foreach(program IN LISTS PROGRAMS)
    execute_process(COMMAND ${READELF} --dynamic ${program}
                    OUTPUT_VARIABLE dynamic RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "${READELF} cannot read ${program}")
    endif()
    if(NOT dynamic MATCHES "NEEDED")
        message(FATAL_ERROR "${program} lists no shared libraries; is it the program?")
    endif()
    if(dynamic MATCHES "libQt6Widgets")
        message(FATAL_ERROR "${program} needs Qt Widgets")
    endif()
endforeach()
list(LENGTH PROGRAMS count)
message(STATUS "No Qt Widgets in ${count} programs, nor on their links")
