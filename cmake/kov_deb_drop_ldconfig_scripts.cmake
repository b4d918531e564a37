# Run by CPack after it built the Debian packages (CPACK_POST_BUILD_SCRIPTS, with the packages in
# CPACK_PACKAGE_FILES). A package that activates the ldconfig trigger needs no maintainer script that
# calls ldconfig, but CPack writes a postinst and a postrm doing just that for every library it finds
# under /usr/lib. This rebuilds those packages without the two scripts; the package's files, the
# md5sums and the control fields stay as CPack made them.
find_program(KOV_DPKG_DEB dpkg-deb REQUIRED)
foreach(_deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT _deb MATCHES "\\.deb$")
    continue()
  endif()
  execute_process(COMMAND ${KOV_DPKG_DEB} --ctrl-tarfile ${_deb}
    COMMAND tar -t
    OUTPUT_VARIABLE _control_files
    COMMAND_ERROR_IS_FATAL ANY)
  if(NOT _control_files MATCHES "(^|\n)\\./triggers\n")
    continue()
  endif()

  get_filename_component(_name ${_deb} NAME)
  string(REGEX REPLACE "\\.deb$" "" _name ${_name})
  get_filename_component(_folder ${_deb} DIRECTORY)
  set(_tree ${_folder}/ldconfig_trigger/${_name})
  file(REMOVE_RECURSE ${_tree})
  file(MAKE_DIRECTORY ${_folder}/ldconfig_trigger)
  execute_process(COMMAND ${KOV_DPKG_DEB} --raw-extract ${_deb} ${_tree} COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${_tree}/DEBIAN/triggers _triggers)
  if(NOT _triggers MATCHES "activate-noawait ldconfig")
    message(FATAL_ERROR "${_deb}: its triggers file does not activate ldconfig")
  endif()
  foreach(_script IN ITEMS postinst postrm)
    if(NOT EXISTS ${_tree}/DEBIAN/${_script})
      continue()
    endif()
    # Only CPack's own script goes: one that does anything besides ldconfig is kept and fails here.
    file(STRINGS ${_tree}/DEBIAN/${_script} _lines REGEX "[^ \t]")
    list(FILTER _lines EXCLUDE REGEX "^(#!/bin/sh|set -e|if \\[ \"\\$1\" = \"(configure|remove)\" \\]; then|[ \t]*ldconfig|fi)$")
    if(_lines)
      message(FATAL_ERROR "${_deb}: ${_script} does more than call ldconfig: ${_lines}")
    endif()
    file(REMOVE ${_tree}/DEBIAN/${_script})
  endforeach()
  execute_process(COMMAND ${KOV_DPKG_DEB} --root-owner-group --build ${_tree} ${_deb}
    OUTPUT_QUIET
    COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${_folder}/ldconfig_trigger)
  message(STATUS "${_name}: ldconfig through the trigger only, postinst and postrm removed")
endforeach()
