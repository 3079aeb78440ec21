# cmake -P install_layout_test.cmake: where brisvane may be installed.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/../install_layout.cmake)

set(failures 0)
macro(expect what actual expected)
    if((${actual} AND NOT ${expected}) OR (NOT ${actual} AND ${expected}))
        message(SEND_ERROR "${what}: got ${${actual}}, expected ${expected}")
        math(EXPR failures "${failures} + 1")
    endif()
endmacro()

function(expect_prefix prefix expected)
    brisvane_is_shared_prefix(shared "${prefix}" "/home/ann")
    expect("shared prefix ${prefix}" shared ${expected})
    set(failures ${failures} PARENT_SCOPE)
endfunction()

# Shared, however the path is spelled.
foreach(prefix IN ITEMS / // /usr /usr/ //usr /usr/local /usr/local/ /usr/./local
        /usr/local/../local /usr/lib/.. /usr/share /usr/local/../brisvane /opt /home /home/ann
        /home/ann/
        /home/ann/.local /home/ann/.local/ /home/ann/bin/../.local)
    expect_prefix("${prefix}" TRUE)
endforeach()
# A folder of brisvane's own, even inside a shared one.
foreach(prefix IN ITEMS /opt/brisvane /usr/local/brisvane /home/ann/Applications/brisvane
        /home/ann/.local/brisvane /home/ann/.localbrisvane /home/annie)
    expect_prefix("${prefix}" FALSE)
endforeach()
# A relative prefix is taken from the current folder.
brisvane_is_shared_prefix(shared "usr" "/home/ann")
cmake_path(ABSOLUTE_PATH CMAKE_CURRENT_SOURCE_DIR NORMALIZE OUTPUT_VARIABLE here)
brisvane_is_shared_prefix(here_shared "${here}/usr" "/home/ann")
expect("relative prefix usr" shared ${here_shared})
# Without a home folder only the system folders count.
brisvane_is_shared_prefix(shared "/home/ann/.local" "")
expect("~/.local without HOME" shared FALSE)

function(expect_layout bindir libexecdir expected)
    brisvane_helper_reachable(reachable "${bindir}" "${libexecdir}")
    expect("helper from ${bindir} with ${libexecdir}" reachable ${expected})
    set(failures ${failures} PARENT_SCOPE)
endfunction()
expect_layout(bin libexec TRUE)
expect_layout(bin/ libexec/ TRUE)
expect_layout(bin ./libexec TRUE)
expect_layout(bin/sub bin/libexec TRUE)
expect_layout(bin lib/libexec FALSE)
expect_layout(games libexec TRUE)
expect_layout(/usr/bin /usr/libexec FALSE)
expect_layout(bin /usr/libexec FALSE)
expect_layout(sbin/tools libexec FALSE)

if(failures GREATER 0)
    message(FATAL_ERROR "${failures} install layout expectations failed")
endif()
