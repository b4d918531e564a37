# Debian packages with CPack (`cpack -G DEB` in the build folder), one per install component:
#   libkov-drivers-lidar-vesk-control-interface0  runtime: the control library
#   libkov-someip-transport0                      someip_runtime: the SOME/IP transport library
#   libkov-vesk-dev                               dev: headers, .so links, CMake and pkg-config files
#   kov-vesk-tools                                tools: veskctl, vesk-sensord, man pages, Wireshark tables
#   python3-kov-vesk                              python: the Python module, built when something
#                                                 installs into the python component (KOV_BUILD_PYTHON)
# A library package is named after its library's SONAME (libfoo_bar.so.0 -> libfoo-bar0), ships a
# shlibs file and activates the ldconfig trigger. The other packages depend on the exact version of
# the library packages; dependencies on system libraries come from dpkg-shlibdeps. Every package holds
# the copyright and the Debian changelog (cmake/debian/) in /usr/share/doc/<package>.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT CMAKE_INSTALL_LIBDIR STREQUAL "lib/${CMAKE_LIBRARY_ARCHITECTURE}")
  message(WARNING "CMAKE_INSTALL_LIBDIR is '${CMAKE_INSTALL_LIBDIR}', the Debian packages need "
    "'lib/${CMAKE_LIBRARY_ARCHITECTURE}' (a build folder configured before may keep 'lib' in its cache: "
    "configure it again with --fresh)")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kov-vesk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "KOV")
set(CPACK_PACKAGE_CONTACT "KOV lidar team <lidar@kov.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
# Release packages carry no debug information.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
if(TARGET kov_someip_transport)
  list(APPEND CPACK_COMPONENTS_ALL someip_runtime)
endif()
# The Python module installs itself into the python component; only then is there a package for it.
get_cmake_property(_kov_install_components COMPONENTS)
if(python IN_LIST _kov_install_components)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kov-vesk)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tools and the Python module link the libraries of this build, which no installed package
# provides yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/src/component)
if(TARGET kov_someip_transport)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/transport)
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

# The library packages let dpkg run ldconfig through its trigger. CPack also writes a postinst and a
# postrm that call ldconfig themselves for any library under /usr/lib, and has no switch against them;
# kov_deb_drop_ldconfig_scripts.cmake takes them out of the built packages again.
set(KOV_DEB_LDCONFIG_TRIGGER ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)
file(WRITE ${KOV_DEB_LDCONFIG_TRIGGER} "activate-noawait ldconfig\n")
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/kov_deb_drop_ldconfig_scripts.cmake)

# kov_deb_package(<component> <package name> <section> <description>)
# Names the package of an install component, and installs the copyright and the changelog into its
# documentation folder. The description's first line is the synopsis, the other lines the extended
# description (an empty line separates paragraphs); no line longer than 80 characters.
function(kov_deb_package component package section description)
  string(TOUPPER ${component} _upper)
  set(CPACK_DEBIAN_${_upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${_upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${_upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${KOV_DEB_CHANGELOG}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endfunction()

# The Debian changelog, compressed as policy asks (gzip -9n: best compression, no name or time stamp)
# and named changelog.gz: the packages are native, their version has no Debian revision.
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/debian/changelog _kov_changelog_head LIMIT_COUNT 1)
if(NOT _kov_changelog_head MATCHES "^kov-vesk \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "cmake/debian/changelog: its latest entry is not version ${PROJECT_VERSION}: "
    "${_kov_changelog_head}")
endif()
find_program(KOV_GZIP gzip REQUIRED)
set(KOV_DEB_CHANGELOG ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz)
add_custom_command(OUTPUT ${KOV_DEB_CHANGELOG}
  COMMAND ${KOV_GZIP} -9n -c ${PROJECT_SOURCE_DIR}/cmake/debian/changelog > ${KOV_DEB_CHANGELOG}
  DEPENDS ${PROJECT_SOURCE_DIR}/cmake/debian/changelog
  COMMENT "Compressing the Debian changelog"
  VERBATIM)
add_custom_target(kov_deb_changelog ALL DEPENDS ${KOV_DEB_CHANGELOG})

set(KOV_DEB_ABOUT "The VESK lidar control library discovers VESK lidar sensors, reads and sets
their system mode, scan settings, scan pattern, scan datum and data path
destination, and reports their events, over SOME/IP.")

kov_deb_package(runtime libkov-drivers-lidar-vesk-control-interface0 libs
  "control library for VESK lidar sensors
${KOV_DEB_ABOUT}

This package holds the shared library of the control library,
libkov_drivers_lidar_vesk_control_interface.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${KOV_DEB_LDCONFIG_TRIGGER})
set(_kov_runtime_components runtime)

if(TARGET kov_someip_transport)
  kov_deb_package(someip_runtime libkov-someip-transport0 libs
    "SOME/IP over UDP transport for the VESK lidar control library
${KOV_DEB_ABOUT}

This package holds the shared library libkov_someip_transport: SOME/IP over
UDP with service discovery, the transport that talks to real sensors.")
  set(CPACK_DEBIAN_SOMEIP_RUNTIME_PACKAGE_CONTROL_EXTRA ${KOV_DEB_LDCONFIG_TRIGGER})
  list(APPEND _kov_runtime_components someip_runtime)
endif()

kov_deb_package(dev libkov-vesk-dev libdevel
  "development files of the VESK lidar control library
${KOV_DEB_ABOUT}

This package holds the C++17 headers, the CMake package
(find_package(kov_drivers_lidar_vesk_control_interface)) and the pkg-config
files of the control library and of the SOME/IP transport.")

kov_deb_package(tools kov-vesk-tools utils
  "tools to discover, configure and simulate VESK lidar sensors
${KOV_DEB_ABOUT}

This package holds veskctl, which lists, reads, configures and watches the
sensors from the command line, vesk-sensord, which serves simulated sensors
over SOME/IP, and name tables for Wireshark's SOME/IP dissector.")

if(python IN_LIST CPACK_COMPONENTS_ALL)
  kov_deb_package(python python3-kov-vesk python
    "Python 3 module to drive VESK lidar sensors
${KOV_DEB_ABOUT}

This package holds the Python 3 module kov_vesk over the control library and
its transports, for test scripts and notebooks.")
  # The native extension is built for one Python version only.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), python3 (<< 3.12)")
endif()

include(CPack)
cpack_add_component(runtime DISPLAY_NAME "Control library")
if(TARGET kov_someip_transport)
  cpack_add_component(someip_runtime DISPLAY_NAME "SOME/IP transport library" DEPENDS runtime)
endif()
cpack_add_component(dev DISPLAY_NAME "Development files" DEPENDS ${_kov_runtime_components})
cpack_add_component(tools DISPLAY_NAME "Tools" DEPENDS ${_kov_runtime_components})
if(python IN_LIST CPACK_COMPONENTS_ALL)
  cpack_add_component(python DISPLAY_NAME "Python module" DEPENDS ${_kov_runtime_components})
endif()
