# SPDX-License-Identifier: MIT
# What `cmake --install` installs, and where. Components: runtime (programs, libraries, add-ins,
# examples, pages, completion), mail (the add-in that needs libcurl), dev (contract headers for add-ins),
# package, package-mail and package-dev (what only a Debian package needs).
include(CMakePackageConfigHelpers)

# The libraries are parts of one program and not for development, so they are in a folder of their own,
# where they find each other; runtime/corvane/addin.cpp looks for the add-ins there.
set(library_dir ${CMAKE_INSTALL_LIBDIR}/corvane)
get_property(addins GLOBAL PROPERTY CORVANE_ADDINS)
set_target_properties(opcua corvaneshare corvane_runtime ${addins} PROPERTIES
  INSTALL_RPATH "$ORIGIN")
install(TARGETS corvane_cli RUNTIME COMPONENT runtime)
install(TARGETS opcua corvaneshare corvane_runtime LIBRARY DESTINATION ${library_dir} COMPONENT runtime)
foreach(addin IN LISTS addins)
  # libcurl and what it needs take several times the space of all the rest.
  set(component runtime)
  if(addin STREQUAL corvane_mail)
    set(component mail)
  endif()
  install(TARGETS ${addin} LIBRARY DESTINATION ${library_dir} COMPONENT ${component})
endforeach()

install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/corvane
  USE_SOURCE_PERMISSIONS COMPONENT runtime PATTERN "*_addin" EXCLUDE
  PATTERN minimal_host EXCLUDE)
# The pages, to be read without a network. Their links to examples go through a symbolic link.
set(pages_dir ${CMAKE_INSTALL_DATADIR}/doc/corvane)
install(DIRECTORY docs DESTINATION ${pages_dir} COMPONENT runtime)
install(FILES CHANGELOG.md DESTINATION ${pages_dir} COMPONENT runtime)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/doc)
file(CREATE_LINK ../../corvane/examples ${CMAKE_BINARY_DIR}/doc/examples SYMBOLIC)
install(FILES ${CMAKE_BINARY_DIR}/doc/examples DESTINATION ${pages_dir} COMPONENT runtime)
install(FILES packaging/completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME corvane COMPONENT runtime)

# compress_text(IN OUT): makes build/.../doc/OUT, compressed as Debian compresses documentation.
function(compress_text in out)
  set(file ${CMAKE_BINARY_DIR}/doc/${out})
  add_custom_command(OUTPUT ${file} DEPENDS ${in} COMMAND gzip -9nc ${in} > ${file} VERBATIM)
  add_custom_target(${out} ALL DEPENDS ${file})
endfunction()

# docs/corvane.md is also the manual page.
find_package(Python3 COMPONENTS Interpreter QUIET)
if(Python3_FOUND)
  set(man_page ${CMAKE_BINARY_DIR}/doc/corvane.1)
  add_custom_command(OUTPUT ${man_page}
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/corvane.md ${PROJECT_SOURCE_DIR}/packaging/man_page.py
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/packaging/man_page.py
      ${PROJECT_SOURCE_DIR}/docs/corvane.md ${PROJECT_VERSION} > ${man_page} VERBATIM)
  compress_text(${man_page} corvane.1.gz)
  install(FILES ${man_page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
else()
  message(STATUS "No Python 3: the manual page is left out")
endif()

# find_package(corvane) defines corvane::contract, which add-ins compile against.
set(config_dir ${CMAKE_INSTALL_DATADIR}/cmake/corvane)
install(DIRECTORY include/block include/corvane include/opcua include/share
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/corvane COMPONENT dev)
configure_package_config_file(cmake/corvane-config.cmake.in ${CMAKE_BINARY_DIR}/corvane-config.cmake
  INSTALL_DESTINATION ${config_dir} PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/corvane-config-version.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${CMAKE_BINARY_DIR}/corvane-config.cmake
  ${CMAKE_BINARY_DIR}/corvane-config-version.cmake
  DESTINATION ${config_dir} COMPONENT dev)
# Complete add-ins, to be copied and built from the package alone.
install(DIRECTORY examples/counter_addin examples/countdown_addin DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/corvane-dev/examples
  COMPONENT dev)
