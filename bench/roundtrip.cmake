# Whole-system round trip through PollManager and the demo helper, beside a floor of
# plain sockets: bare_echo is the floor's server, a process of its own like the helper.
add_executable(bare_echo ${CMAKE_CURRENT_LIST_DIR}/bare_echo.cpp)
brisvane_target_defaults(bare_echo)
target_link_libraries(bare_echo PRIVATE bare_http)

add_executable(roundtrip ${CMAKE_CURRENT_LIST_DIR}/roundtrip.cpp)
brisvane_target_defaults(roundtrip)
target_link_libraries(roundtrip PRIVATE poll_manager bare_http)
target_compile_definitions(roundtrip PRIVATE
    BRISVANE_DEMO_HELPER="$<TARGET_FILE:demo_helper>"
    BRISVANE_BARE_ECHO="$<TARGET_FILE:bare_echo>")
add_dependencies(roundtrip demo_helper bare_echo)
