# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` installs: the two programs, the libraries that an agent is built on with their
# headers, how CMake and pkg-config find them, and the printers for gdb. The installed tree may be moved as
# a whole: all that stands in it finds the rest by relative paths.
#
# Components: Programs; Libraries, which the programs need; Development, which needs Libraries.

include(CMakePackageConfigHelpers)

# In the order in which a linker wants them: users first.
set(installed_libraries hardware LoamFec records LoamAdjLib Asic Glint Vanta Wirex Zev Pell)
set(installed_programs fecd fecctl)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/LoamFec)
set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Leaves in `result` how one gets from a folder below the prefix to another one.
function(relative_path result from to)
  cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY /prefix)
  cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY /prefix)
  cmake_path(RELATIVE_PATH to BASE_DIRECTORY ${from} OUTPUT_VARIABLE path)
  set(${result} ${path} PARENT_SCOPE)
endfunction()

relative_path(programs_to_libraries ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR})
set_target_properties(${installed_programs} PROPERTIES INSTALL_RPATH "$ORIGIN/${programs_to_libraries}")
set_target_properties(${installed_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${installed_programs} RUNTIME COMPONENT Programs)
foreach(library ${installed_libraries})
  # A library's name without a version is for linking alone; libLoamFec.so is also loaded by that name.
  set(name_component Development)
  if(library STREQUAL LoamFec)
    set(name_component Libraries)
  endif()
  install(
    TARGETS ${library}
    EXPORT LoamFecTargets
    LIBRARY COMPONENT Libraries NAMELINK_COMPONENT ${name_component})
  get_target_property(folder ${library} SOURCE_DIR)
  install(
    DIRECTORY ${folder}/include/
    DESTINATION ${LOAMFEC_INSTALL_HEADERS}
    COMPONENT Development
    FILES_MATCHING PATTERN *.h)
endforeach()

# CMake: find_package(LoamFec), and the targets LoamFec::LoamFec, LoamFec::hardware and so on.
install(
  EXPORT LoamFecTargets
  NAMESPACE LoamFec::
  DESTINATION ${package_folder}
  COMPONENT Development)
configure_package_config_file(
  packaging/LoamFecConfig.cmake.in ${PROJECT_BINARY_DIR}/install/LoamFecConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/install/LoamFecConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/install/LoamFecConfig.cmake
        ${PROJECT_BINARY_DIR}/install/LoamFecConfigVersion.cmake
  DESTINATION ${package_folder}
  COMPONENT Development)

# pkg-config: loamfec, which links all of them.
relative_path(pkgconfig_to_prefix ${pkgconfig_folder} /prefix)
set(link_options "")
foreach(library ${installed_libraries})
  get_target_property(name ${library} OUTPUT_NAME)
  string(APPEND link_options " -l${name}")
endforeach()
configure_file(packaging/loamfec.pc.in ${PROJECT_BINARY_DIR}/install/loamfec.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/install/loamfec.pc
  DESTINATION ${pkgconfig_folder}
  COMPONENT Development)

install(
  FILES ${PROJECT_SOURCE_DIR}/share/gdb/loamfec-gdb.py
  DESTINATION ${CMAKE_INSTALL_DATADIR}/loamfec
  COMPONENT Development)

install(
  FILES ${PROJECT_SOURCE_DIR}/LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT Libraries)
