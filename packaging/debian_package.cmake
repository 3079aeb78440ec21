# The Debian package: brisvane_<version>_<arch>.deb, installing under /usr.

string(REGEX REPLACE "^[a-z]+://([^/:]+).*$" "\\1" site_host "${BRISVANE_SITE_URL}")
set(BRISVANE_PACKAGE_MAINTAINER "brisvane developers <packages@${site_host}>" CACHE STRING
    "Maintainer named in the Debian package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME brisvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${BRISVANE_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "tray companion for a folder and photo-library sync service")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${BRISVANE_SITE_URL}")
# CPack copies these lines into the control file as they are, so each is kept short enough
# for the 80 columns Debian's tools show it in, after the space they gain there.
string(CONCAT CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "brisvane sits in the system tray and starts the sync service's helper,\n"
    "which does the synchronisation. From its panel the user logs in, sees\n"
    "every watched folder with its sync state and progress, adds folders or a\n"
    "photo library to a group, stops watching one, and opens a folder or a\n"
    "group's page on the service's web site.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The helper opens folders and web pages with xdg-open.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The licence and the changelog, where Debian's tools look for them. brisvane is packaged by
# its own developers from its own source, with no Debian revision in the version: a native
# package, whose changelog is changelog.gz; changelog.Debian.gz is for packages of someone
# else's upstream release.
include(${CMAKE_CURRENT_LIST_DIR}/debian_changelog.cmake)
brisvane_debian_changelog_date(changelog_date "${release_date}")
set(debian_doc_dir ${CMAKE_CURRENT_BINARY_DIR}/debian)
configure_file(debian/changelog.in ${debian_doc_dir}/changelog @ONLY)
brisvane_gzip(${debian_doc_dir}/changelog ${debian_doc_dir}/changelog.gz)
add_custom_target(debian_changelog ALL DEPENDS ${debian_doc_dir}/changelog.gz)
install(FILES debian/copyright ${debian_doc_dir}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

include(CPack)
