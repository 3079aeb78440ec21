# Start-up time and memory of the real application under a virtual desktop: a Python
# script that runs everything, and a small X client that sees the tray icon arrive.
find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB IMPORTED_TARGET xcb)

if(NOT XCB_FOUND)
    message(STATUS "libxcb development files not found: the start-up benchmark is not built")
    return()
endif()

add_executable(startup_tray_watch ${CMAKE_CURRENT_LIST_DIR}/startup_tray_watch.cpp)
brisvane_target_defaults(startup_tray_watch)
target_link_libraries(startup_tray_watch PRIVATE PkgConfig::XCB)
# Building the watcher builds everything the script runs.
add_dependencies(startup_tray_watch brisvane demo_helper)

brisvane_bench_script(startup)
