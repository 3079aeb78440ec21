# Whole-system round trip through PollManager and the demo helper.
find_package(PkgConfig REQUIRED)
pkg_check_modules(CPP_HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

add_executable(loopback_echo ${CMAKE_CURRENT_LIST_DIR}/loopback_echo.cpp)
brisvane_target_defaults(loopback_echo)
target_link_libraries(loopback_echo PRIVATE PkgConfig::CPP_HTTPLIB Threads::Threads)

add_executable(roundtrip ${CMAKE_CURRENT_LIST_DIR}/roundtrip.cpp)
brisvane_target_defaults(roundtrip)
target_link_libraries(roundtrip PRIVATE poll_manager)
target_compile_definitions(roundtrip PRIVATE
    BRISVANE_DEMO_HELPER="$<TARGET_FILE:demo_helper>"
    BRISVANE_ECHO_SERVER="$<TARGET_FILE:loopback_echo>")
add_dependencies(roundtrip demo_helper loopback_echo)
