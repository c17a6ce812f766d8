# SPDX-License-Identifier: Apache-2.0
# The Debian package: `cpack` in a build folder of the Linux platform makes it from the component `daemon`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zel-lite)
set(CPACK_PACKAGE_VENDOR "zel-lite")
set(CPACK_PACKAGE_CONTACT "zel-lite maintainers <maintainers@zel-lite.invalid>" CACHE STRING "Who stands for the package")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Supervisor of a heavy service that others need at times")
set(CPACK_PACKAGE_DESCRIPTION
  "It starts the service zel-daemon through systemd when something needs it, tells
it why, and asks it to go when nothing does. Applications hold the service with
sessions over D-Bus, windows on screen over Wayland; sessions survive a restart
of the daemon.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL daemon)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# What it links, dpkg-shlibdeps finds; it also talks to these.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dbus, systemd, init-system-helpers (>= 1.54)")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  "${CMAKE_SOURCE_DIR}/packaging/debian/conffiles"
  "${CMAKE_SOURCE_DIR}/packaging/debian/postinst"
  "${CMAKE_SOURCE_DIR}/packaging/debian/prerm"
  "${CMAKE_SOURCE_DIR}/packaging/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/packaging/debian/compress.cmake")
include(CPack)

install(FILES packaging/debian/changelog packaging/debian/copyright
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/zel-lite" COMPONENT daemon)
install(FILES docs/man/zel-lite.8 DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT daemon)
