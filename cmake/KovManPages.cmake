# Man pages generated at build time from the programs' own --help, so that they cannot drift from it.
find_program(KOV_HELP2MAN help2man)
find_program(KOV_GZIP gzip)

# kov_add_man_page(<executable target> <one-line description>)
# Builds <target>.1.gz (section 1) from `<target> --help` and the --help of each of its subcommands,
# and installs it with the tools.
function(kov_add_man_page target description)
  if(NOT KOV_HELP2MAN OR NOT KOV_GZIP)
    message(STATUS "help2man or gzip not found: no man page for ${target}")
    return()
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1.gz)
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -DHELP2MAN=${KOV_HELP2MAN} -DGZIP=${KOV_GZIP} -DPROGRAM=$<TARGET_FILE:${target}>
            -DNAME=${target} -DDESCRIPTION=${description} -DVERSION=${PROJECT_VERSION} -DOUTPUT=${page}
            -P ${PROJECT_SOURCE_DIR}/cmake/generate_man_page.cmake
    DEPENDS ${target} ${PROJECT_SOURCE_DIR}/cmake/generate_man_page.cmake
    COMMENT "Generating the man page of ${target} from its --help"
    VERBATIM)
  add_custom_target(${target}_man_page ALL DEPENDS ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()
