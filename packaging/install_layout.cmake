# Rules for where brisvane may be installed. Used while configuring, while installing
# (`cmake --install --prefix` can name another prefix than the configured one) and by the
# packaging tests, so it needs nothing but plain CMake.

# brisvane_is_shared_prefix(<result> <prefix> <home>): true when <prefix> is a folder that
# other software installs into too. The self-updater swaps the whole prefix for a new
# version, so such a folder must never be marked as brisvane's own.
function(brisvane_is_shared_prefix result prefix home)
    cmake_path(ABSOLUTE_PATH prefix NORMALIZE OUTPUT_VARIABLE prefix)
    string(REGEX REPLACE "/+$" "" prefix "${prefix}")
    set(shared FALSE)
    # The root, every folder directly in it (/usr, /opt, /home, ...) and every folder
    # directly in /usr (/usr/local, /usr/share, ...) belong to the whole system.
    if(prefix STREQUAL "" OR prefix MATCHES "^/[^/]+$" OR prefix MATCHES "^/usr/[^/]+$")
        set(shared TRUE)
    endif()
    if(NOT home STREQUAL "")
        cmake_path(ABSOLUTE_PATH home NORMALIZE OUTPUT_VARIABLE home)
        string(REGEX REPLACE "/+$" "" home "${home}")
        if(prefix STREQUAL home OR prefix STREQUAL "${home}/.local")
            set(shared TRUE)
        endif()
    endif()
    set(${result} ${shared} PARENT_SCOPE)
endfunction()

# brisvane_require_own_prefix(<prefix> <home>): stops with an error for a shared prefix.
function(brisvane_require_own_prefix prefix home)
    brisvane_is_shared_prefix(shared "${prefix}" "${home}")
    if(shared)
        message(FATAL_ERROR
            "BRISVANE_SELF_UPDATING_BUNDLE marks the install prefix as brisvane's own folder, "
            "which the self-updater replaces as a whole; ${prefix} is shared with other "
            "software. Install into a folder of its own (for example /opt/brisvane or "
            "~/Applications/brisvane), or turn the option off.")
    endif()
endfunction()

# brisvane_refuse_shared_install_prefix(): an install rule that stops the installation when
# the prefix it is given is shared, before the rules that follow it put the marker there.
function(brisvane_refuse_shared_install_prefix)
    install(CODE "
        include(\"${CMAKE_CURRENT_FUNCTION_LIST_FILE}\")
        brisvane_require_own_prefix(\"\${CMAKE_INSTALL_PREFIX}\" \"\$ENV{HOME}\")")
endfunction()

# brisvane_helper_reachable(<result> <bindir> <libexecdir>): true when the executable in
# <bindir> finds its helper at ../libexec/brisvane, as it expects, with <libexecdir>.
function(brisvane_helper_reachable result bindir libexecdir)
    set(expected "${bindir}/../libexec")
    cmake_path(NORMAL_PATH expected)
    cmake_path(NORMAL_PATH libexecdir)
    string(REGEX REPLACE "/+$" "" expected "${expected}")
    string(REGEX REPLACE "/+$" "" libexecdir "${libexecdir}")
    if(NOT IS_ABSOLUTE "${bindir}" AND libexecdir STREQUAL expected)
        set(${result} TRUE PARENT_SCOPE)
    else()
        set(${result} FALSE PARENT_SCOPE)
    endif()
endfunction()

function(brisvane_check_resources_layout bindir libexecdir)
    brisvane_helper_reachable(reachable "${bindir}" "${libexecdir}")
    if(NOT reachable)
        message(FATAL_ERROR
            "brisvane finds its helper at ../libexec/brisvane beside its bin folder; "
            "CMAKE_INSTALL_BINDIR=${bindir} with CMAKE_INSTALL_LIBEXECDIR=${libexecdir} "
            "breaks that. Keep both relative, for example bin and libexec.")
    endif()
endfunction()
