# SPDX-License-Identifier: MIT
# corvane_addin(NAME SOURCE... [LIBRARIES LIB...]): the add-in NAME.so of the current folder, whose
# block_types.h lists its block types. Its objects are the library NAME_objects, which tests also link.
# Installation and the checks that every add-in passes go through the global property CORVANE_ADDINS.
function(corvane_addin name)
  cmake_parse_arguments(ARG "" "" "LIBRARIES" ${ARGN})
  add_library(${name}_objects OBJECT ${ARG_UNPARSED_ARGUMENTS})
  set_target_properties(${name}_objects PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${name}_objects PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}_objects
    PUBLIC corvane_contract ${ARG_LIBRARIES}
    PRIVATE corvane_warnings)

  # Lua is not linked: the host that loads the add-in provides it.
  set(exports ${PROJECT_SOURCE_DIR}/addins/exports.map)
  add_library(${name} MODULE)
  set_target_properties(${name} PROPERTIES PREFIX "" LINK_DEPENDS ${exports})
  target_link_options(${name} PRIVATE -Wl,--version-script=${exports})
  target_link_libraries(${name} PRIVATE ${name}_objects opcua corvaneshare corvane_runtime)
  set_property(GLOBAL APPEND PROPERTY CORVANE_ADDINS ${name})
endfunction()
