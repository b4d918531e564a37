# Install rules and the CMake package config for find_package(kov_drivers_lidar_vesk_control_interface).
include(CMakePackageConfigHelpers)

set(KOV_PACKAGE kov_drivers_lidar_vesk_control_interface)
set(KOV_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${KOV_PACKAGE})
# Headers go into a folder of their own so that generic names like common/ cannot clash.
set(KOV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/${KOV_PACKAGE})

install(TARGETS ${KOV_PACKAGE}
  EXPORT ${KOV_PACKAGE}Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${KOV_INCLUDE_DIR})

# The SOME/IP transport: its own shared library in the same package (kov::kov_someip_transport).
if(TARGET kov_someip_transport)
  install(TARGETS kov_someip_transport
    EXPORT ${KOV_PACKAGE}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${KOV_INCLUDE_DIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/transport/include/ DESTINATION ${KOV_INCLUDE_DIR})
endif()

get_property(_kov_include_dirs GLOBAL PROPERTY KOV_PUBLIC_INCLUDE_DIRS)
foreach(_dir IN LISTS _kov_include_dirs)
  install(DIRECTORY ${_dir}/ DESTINATION ${KOV_INCLUDE_DIR})
endforeach()

install(EXPORT ${KOV_PACKAGE}Targets
  NAMESPACE kov::
  DESTINATION ${KOV_CONFIG_DIR})

configure_package_config_file(cmake/${KOV_PACKAGE}Config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}Config.cmake
  INSTALL_DESTINATION ${KOV_CONFIG_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}ConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}Config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/${KOV_PACKAGE}ConfigVersion.cmake
  DESTINATION ${KOV_CONFIG_DIR})
