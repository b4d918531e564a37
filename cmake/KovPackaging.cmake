# Debian packages with CPack (`cpack -G DEB` in the build folder), one per install component:
#   libkov-vesk0     runtime: the shared libraries; ships a shlibs file and the ldconfig trigger
#   libkov-vesk-dev  headers, .so links, CMake and pkg-config files; depends on the same runtime version
#   kov-vesk-tools   veskctl, vesk-sensord and their man pages; depends on the same runtime version
# Dependencies on system libraries come from dpkg-shlibdeps.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kov-vesk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "KOV")
set(CPACK_PACKAGE_CONTACT "KOV lidar team <lidar@kov.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Control library for VESK lidar sensors over SOME/IP")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
# Release packages carry no debug information.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tools link the libraries of this build, which no installed package provides yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/src/component)
if(TARGET kov_someip_transport)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/transport)
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkov-vesk0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkov-vesk-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kov-vesk-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)

include(CPack)
cpack_add_component(runtime DISPLAY_NAME "Shared libraries"
  DESCRIPTION "The VESK lidar control library and the SOME/IP transport, versioned shared libraries")
cpack_add_component(dev DISPLAY_NAME "Development files" DEPENDS runtime
  DESCRIPTION "Headers, CMake package and pkg-config files of the VESK lidar control library")
cpack_add_component(tools DISPLAY_NAME "Tools" DEPENDS runtime
  DESCRIPTION "veskctl to discover, configure and watch VESK lidar sensors; vesk-sensord to serve simulated ones")
