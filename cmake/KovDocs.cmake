# API reference: `cmake --build <dir> --target docs` runs Doxygen over the public headers into
# <dir>/docs/html. Any Doxygen warning fails the target.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: no docs target")
  return()
endif()

get_property(_kov_doc_dirs GLOBAL PROPERTY KOV_PUBLIC_INCLUDE_DIRS)
if(TARGET kov_someip_transport)
  list(APPEND _kov_doc_dirs ${PROJECT_SOURCE_DIR}/transport/include)
endif()
list(REMOVE_DUPLICATES _kov_doc_dirs)
list(JOIN _kov_doc_dirs " \\\n    " KOV_DOXYGEN_INPUT)
set(KOV_DOXYGEN_OUTPUT ${CMAKE_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${KOV_DOXYGEN_OUTPUT}/Doxyfile @ONLY)
add_custom_target(docs
  COMMAND Doxygen::doxygen ${KOV_DOXYGEN_OUTPUT}/Doxyfile
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "Doxygen: API reference of the public headers into ${KOV_DOXYGEN_OUTPUT}/html"
  VERBATIM)
