# cmake -P debian_changelog_test.cmake: the dates of the package's changelog entries.
# With -Ddate=<day> it only formats that day, for the cases that must stop with an error.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/../debian_changelog.cmake)

if(DEFINED date)
    brisvane_debian_changelog_date(formatted "${date}")
    message("${formatted}")
    return()
endif()

set(failures 0)
function(expect_date day expected)
    brisvane_debian_changelog_date(formatted "${day}")
    if(NOT formatted STREQUAL expected)
        message(SEND_ERROR "${day}: got \"${formatted}\", expected \"${expected}\"")
        math(EXPR failures "${failures} + 1")
    endif()
    set(failures ${failures} PARENT_SCOPE)
endfunction()

# Every weekday once; January and February belong to the year before in the weekday sum,
# and the century years are leap years only every 400 years.
expect_date(2025-09-07 "Sun, 07 Sep 2025 00:00:00 +0000")
expect_date(2100-03-01 "Mon, 01 Mar 2100 00:00:00 +0000")
expect_date(2000-02-29 "Tue, 29 Feb 2000 00:00:00 +0000")
expect_date(2025-12-31 "Wed, 31 Dec 2025 00:00:00 +0000")
expect_date(2023-03-01 "Wed, 01 Mar 2023 00:00:00 +0000")
expect_date(1970-01-01 "Thu, 01 Jan 1970 00:00:00 +0000")
expect_date(1900-03-01 "Thu, 01 Mar 1900 00:00:00 +0000")
expect_date(2024-02-29 "Thu, 29 Feb 2024 00:00:00 +0000")
expect_date(2024-03-01 "Fri, 01 Mar 2024 00:00:00 +0000")
expect_date(2022-01-01 "Sat, 01 Jan 2022 00:00:00 +0000")

# Days the calendar does not have, and other spellings, stop the configuration.
foreach(day IN ITEMS 2023-02-29 1900-02-29 2100-02-29 2025-04-31 2025-01-32 2025-01-00
        2025-00-10 2025-13-01 2025-1-01 25-01-01 2025/01/01 "")
    execute_process(COMMAND ${CMAKE_COMMAND} -Ddate=${day} -P ${CMAKE_CURRENT_LIST_FILE}
                    RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
    if(status EQUAL 0)
        message(SEND_ERROR "\"${day}\" was taken as a day")
        math(EXPR failures "${failures} + 1")
    endif()
endforeach()

if(failures GREATER 0)
    message(FATAL_ERROR "${failures} changelog date expectations failed")
endif()
