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
string(CONCAT CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "brisvane sits in the system tray and starts the sync service's helper, which does the\n"
    "synchronisation. From its panel the user logs in, sees every watched folder with its\n"
    "sync state and progress, adds folders or a photo library to a group, stops watching\n"
    "one, and opens a folder or a group's page on the service's web site.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The helper opens folders and web pages with xdg-open.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
