# pkg-config files: kov_drivers_lidar_vesk_control_interface.pc and, when the transport is built,
# kov_someip_transport.pc. They find their prefix relative to their own folder (${pcfiledir}), so the
# same file serves `cmake --install --prefix <any>` and the Debian packages under /usr.
set(KOV_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KOV_PKGCONFIG_TO_PREFIX /${KOV_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" KOV_PKGCONFIG_TO_PREFIX "${KOV_PKGCONFIG_TO_PREFIX}")

set(_kov_pc_libraries ${KOV_PACKAGE})
if(TARGET kov_someip_transport)
  list(APPEND _kov_pc_libraries kov_someip_transport)
endif()
foreach(_library IN LISTS _kov_pc_libraries)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/pkgconfig/${_library}.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${_library}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${_library}.pc DESTINATION ${KOV_PKGCONFIG_DIR} COMPONENT dev)
endforeach()
