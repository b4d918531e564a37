# Install rules, the CMake package config for find_package(kov_drivers_lidar_vesk_control_interface),
# the pkg-config files, the Debian packages and the API reference.
#
# Install components, one Debian package each (cmake/KovPackaging.cmake):
#   runtime         the control library's versioned shared library (.so.0, .so.0.1.0)
#   someip_runtime  the same for the SOME/IP transport library
#   dev             headers, the unversioned .so links, CMake package and pkg-config files
#   tools           veskctl, vesk-sensord and their man pages (the default for programs, KovModule.cmake)
# Libraries, CMake package and pkg-config files go under CMAKE_INSTALL_LIBDIR, lib/<multiarch> on
# Debian (set in the top CMakeLists.txt).
include(CMakePackageConfigHelpers)

set(KOV_PACKAGE kov_drivers_lidar_vesk_control_interface)
set(KOV_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${KOV_PACKAGE})
# Headers go into a folder of their own so that generic names like common/ cannot clash.
set(KOV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/${KOV_PACKAGE})

# The library names its installed include folder itself (src/component), so no INCLUDES DESTINATION
# here: it would add the same folder a second time.
install(TARGETS ${KOV_PACKAGE}
  EXPORT ${KOV_PACKAGE}Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# The SOME/IP transport: its own shared library with its own SONAME, so its own runtime package, and
# the same CMake package (kov::kov_someip_transport).
if(TARGET kov_someip_transport)
  install(TARGETS kov_someip_transport
    EXPORT ${KOV_PACKAGE}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT someip_runtime NAMELINK_COMPONENT dev
    INCLUDES DESTINATION ${KOV_INCLUDE_DIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/transport/include/ DESTINATION ${KOV_INCLUDE_DIR} COMPONENT dev)
endif()

get_property(_kov_include_dirs GLOBAL PROPERTY KOV_PUBLIC_INCLUDE_DIRS)
foreach(_dir IN LISTS _kov_include_dirs)
  install(DIRECTORY ${_dir}/ DESTINATION ${KOV_INCLUDE_DIR} COMPONENT dev)
endforeach()

install(EXPORT ${KOV_PACKAGE}Targets
  NAMESPACE kov::
  DESTINATION ${KOV_CONFIG_DIR}
  COMPONENT dev)

configure_package_config_file(cmake/${KOV_PACKAGE}Config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}Config.cmake
  INSTALL_DESTINATION ${KOV_CONFIG_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}ConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}Config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}ConfigVersion.cmake
  DESTINATION ${KOV_CONFIG_DIR}
  COMPONENT dev)

include(${CMAKE_CURRENT_LIST_DIR}/KovPkgConfig.cmake)
if(TARGET vesk-sensord)
  kov_add_man_page(vesk-sensord "serve simulated VESK lidar sensors over SOME/IP")
endif()
include(${CMAKE_CURRENT_LIST_DIR}/KovPackaging.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/KovDocs.cmake)
