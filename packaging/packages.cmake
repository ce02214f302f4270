# SPDX-License-Identifier: MIT
# The Debian packages: corvane (the runtime and its service), corvane-mail (the add-in that needs libcurl)
# and corvane-dev (for add-ins of others).
# packaging/build_packages.sh builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_CONTACT "The Corvane function block authors <corvane@corvane.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR}/packages)

# The package's version is that of the newest entry in its changelog.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog changelog_head LIMIT_COUNT 1)
if(NOT changelog_head MATCHES "^corvane \\(${PROJECT_VERSION}-([0-9]+)\\)")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime mail dev package package-mail package-dev)
set(CPACK_COMPONENT_RUNTIME_GROUP corvane)
set(CPACK_COMPONENT_PACKAGE_GROUP corvane)
set(CPACK_COMPONENT_MAIL_GROUP mail)
set(CPACK_COMPONENT_PACKAGE-MAIL_GROUP mail)
set(CPACK_COMPONENT_DEV_GROUP dev)
set(CPACK_COMPONENT_PACKAGE-DEV_GROUP dev)

set(CPACK_DEBIAN_CORVANE_PACKAGE_NAME corvane)
set(CPACK_DEBIAN_CORVANE_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_CORVANE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# Python runs the mail server of two of the examples; the server's library is only recommended.
set(CPACK_DEBIAN_CORVANE_PACKAGE_DEPENDS "adduser, python3:any")
set(CPACK_DEBIAN_CORVANE_PACKAGE_RECOMMENDS python3-aiosmtpd)
set(CPACK_DEBIAN_CORVANE_PACKAGE_SUGGESTS corvane-mail)
set(CPACK_DEBIAN_CORVANE_DESCRIPTION
"Runs control programs written in Lua 5.2 in cycles, as a PLC does.
Function blocks receive and send SMS through a GSM modem, keep messages
on the disk until they are sent or accepted, send e-mail and run shell
commands. The service corvane@NAME runs /etc/corvane/NAME.lua.")
set(CPACK_DEBIAN_CORVANE_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/debian/postinst
  ${CMAKE_CURRENT_LIST_DIR}/debian/prerm
  ${CMAKE_CURRENT_LIST_DIR}/debian/postrm
  ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_CORVANE_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_MAIL_PACKAGE_NAME corvane-mail)
set(CPACK_DEBIAN_MAIL_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_MAIL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_MAIL_PACKAGE_DEPENDS
  "corvane (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), ca-certificates")
# The add-in was in the package corvane before.
set(CPACK_DEBIAN_MAIL_PACKAGE_BREAKS "corvane (<< 0.2.0~)")
set(CPACK_DEBIAN_MAIL_PACKAGE_REPLACES "corvane (<< 0.2.0~)")
set(CPACK_DEBIAN_MAIL_DESCRIPTION
"Function block MAIL_OUTBOX for Corvane's control programs.
It keeps e-mail on the disk until a mail server has taken it, over TLS with
certificates checked.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME corvane-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "liblua5.2-dev, pkg-config | pkgconf")
set(CPACK_DEBIAN_DEV_DESCRIPTION
"Headers for add-ins: the contract between a Corvane runtime and the libraries of
function blocks that it loads, and the base of such blocks, with the CMake package
corvane and an example.")

install(FILES packaging/corvane@.service DESTINATION lib/systemd/system
  COMPONENT package EXCLUDE_FROM_ALL)
install(PROGRAMS packaging/service.sh DESTINATION lib/corvane RENAME service
  COMPONENT package EXCLUDE_FROM_ALL)
install(DIRECTORY DESTINATION /etc/corvane COMPONENT package EXCLUDE_FROM_ALL)
compress_text(${CMAKE_CURRENT_LIST_DIR}/debian/changelog changelog.Debian.gz)
foreach(package IN ITEMS corvane corvane-mail corvane-dev)
  string(REPLACE corvane package component ${package})  # package, package-mail, package-dev
  install(FILES packaging/debian/copyright ${CMAKE_BINARY_DIR}/doc/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
include(CPack)
