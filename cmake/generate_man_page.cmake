# cmake -DHELP2MAN=... -DGZIP=... -DPROGRAM=... -DNAME=... -DDESCRIPTION=... -DVERSION=... -DOUTPUT=... -P
# Writes the man page of PROGRAM with help2man. The subcommands that the program's --help lists under
# "Subcommands:" (CLI11's layout) get a section each, holding their own --help.
execute_process(COMMAND ${PROGRAM} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} --help failed (${status})")
endif()

get_filename_component(directory ${OUTPUT} DIRECTORY)
set(include_file ${directory}/${NAME}.h2m)
file(WRITE ${include_file} "")
set(include_option "")
string(FIND "${help}" "Subcommands:" at)
if(at GREATER -1)
  string(SUBSTRING "${help}" ${at} -1 section)
  string(FIND "${section}" "\n\n" end)
  string(SUBSTRING "${section}" 0 ${end} section)
  string(REGEX MATCHALL "\n  [a-z][a-z0-9-]*" names "${section}")
  file(APPEND ${include_file} "[SUBCOMMANDS]\n")
  set(include_option --include=${include_file})
  foreach(name IN LISTS names)
    string(STRIP "${name}" name)
    execute_process(COMMAND ${PROGRAM} ${name} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
      message(FATAL_ERROR "${PROGRAM} ${name} --help failed (${status})")
    endif()
    # Preformatted, with the build path of the program replaced by its name and roff's control
    # characters made harmless.
    string(REPLACE "${PROGRAM}" "${NAME}" text "${text}")
    string(REPLACE "\\" "\\e" text "${text}")
    string(REGEX REPLACE "\n([.'])" "\n\\\\&\\1" text "\n${text}")
    file(APPEND ${include_file} ".SS ${NAME} ${name}\n.nf${text}.fi\n")
  endforeach()
endif()

string(REGEX REPLACE "\\.gz$" "" page ${OUTPUT})
execute_process(
  COMMAND ${HELP2MAN} --no-info --section=1 --name=${DESCRIPTION} --version-string=${VERSION}
          ${include_option} --output=${page} ${PROGRAM}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed for ${PROGRAM} (${status})")
endif()
execute_process(COMMAND ${GZIP} -9nf ${page} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gzip failed for ${page} (${status})")
endif()
