# The date of a Debian changelog entry. Plain CMake, so the packaging tests can include it.

# brisvane_debian_changelog_date(<result> <YYYY-MM-DD>): the day in the RFC 2822 form a
# changelog's trailer line needs, "Wed, 01 Jan 2025 00:00:00 +0000". string(TIMESTAMP) only
# formats the present, but a release is dated with a given day, so the weekday is worked out
# here (Sakamoto's method); dpkg-parsechangelog and lintian reject a wrong one.
function(brisvane_debian_changelog_date result date)
    if(NOT date MATCHES "^([0-9][0-9][0-9][0-9])-([0-9][0-9])-([0-9][0-9])$")
        message(FATAL_ERROR "a changelog date is written YYYY-MM-DD, not ${date}")
    endif()
    set(year_text ${CMAKE_MATCH_1})
    set(day_text ${CMAKE_MATCH_3})
    math(EXPR year "${CMAKE_MATCH_1}")
    math(EXPR month "${CMAKE_MATCH_2}")
    math(EXPR day "${CMAKE_MATCH_3}")
    math(EXPR by_4 "${year} % 4")
    math(EXPR by_100 "${year} % 100")
    math(EXPR by_400 "${year} % 400")
    set(february 28)
    if((by_4 EQUAL 0 AND NOT by_100 EQUAL 0) OR by_400 EQUAL 0)
        set(february 29)
    endif()
    set(month_lengths 31 ${february} 31 30 31 30 31 31 30 31 30 31)
    set(month_length 0)
    if(month GREATER_EQUAL 1 AND month LESS_EQUAL 12)
        math(EXPR month_index "${month} - 1")
        list(GET month_lengths ${month_index} month_length)
    endif()
    if(day LESS 1 OR day GREATER month_length)
        message(FATAL_ERROR "${date} is not a day of the calendar")
    endif()
    set(month_offsets 0 3 2 5 0 3 5 1 4 6 2 4)
    list(GET month_offsets ${month_index} month_offset)
    # January and February count as the last months of the year before.
    if(month LESS 3)
        math(EXPR year "${year} - 1")
    endif()
    math(EXPR weekday_index
         "(${year} + ${year} / 4 - ${year} / 100 + ${year} / 400 + ${month_offset} + ${day}) % 7")
    set(weekdays Sun Mon Tue Wed Thu Fri Sat)
    list(GET weekdays ${weekday_index} weekday)
    set(months Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
    list(GET months ${month_index} month_name)
    set(${result} "${weekday}, ${day_text} ${month_name} ${year_text} 00:00:00 +0000"
        PARENT_SCOPE)
endfunction()
