# Memory and CPU of the application over minutes with 10,000 watched folders, on a
# virtual desktop: the script with the build's paths filled in, as bin/soak.
file(GENERATE OUTPUT ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/soak
     INPUT ${CMAKE_CURRENT_LIST_DIR}/soak.py
     FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                      WORLD_READ WORLD_EXECUTE)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${CMAKE_CURRENT_LIST_DIR}/soak.py)
