# Shared compile settings and the helper that declares one library module.

add_library(kov_build_flags INTERFACE)
target_compile_options(kov_build_flags INTERFACE -Wall -Wextra -Wpedantic)
if(KOV_WERROR)
  target_compile_options(kov_build_flags INTERFACE -Werror)
endif()
if(KOV_SANITIZE)
  list(JOIN KOV_SANITIZE "," _kov_sanitizers)
  add_compile_options(-fsanitize=${_kov_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_kov_sanitizers})
endif()
# The hardening of Debian's own packages (dpkg-buildflags): stack protector, a read-only relocation
# table resolved at load time and, where the code is optimised and not instrumented (sanitizers,
# fuzzers), the checked libc functions: _FORTIFY_SOURCE needs optimisation and gets in the way of the
# sanitizers' own interceptors.
add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro LINKER:-z,now)
if(NOT KOV_SANITIZE AND NOT KOV_BUILD_FUZZERS)
  add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

# kov_add_module(<target> SOURCES <files...> [DEPENDS <targets...>])
# Declares an object library with a public include/ folder and a private src/ folder.
# The objects are linked into the shared library by src/component.
function(kov_add_module target)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  if(NOT ARG_SOURCES)
    # A module without sources yet: headers only.
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>)
    target_link_libraries(${target} INTERFACE ${ARG_DEPENDS})
    set_property(GLOBAL APPEND PROPERTY KOV_PUBLIC_INCLUDE_DIRS ${CMAKE_CURRENT_SOURCE_DIR}/include)
    return()
  endif()
  add_library(${target} OBJECT ${ARG_SOURCES})
  target_include_directories(${target}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${target} PUBLIC ${ARG_DEPENDS} PRIVATE kov_build_flags)
  set_property(GLOBAL APPEND PROPERTY KOV_MODULES ${target})
  set_property(GLOBAL APPEND PROPERTY KOV_PUBLIC_INCLUDE_DIRS ${CMAKE_CURRENT_SOURCE_DIR}/include)
endfunction()
include(${CMAKE_CURRENT_LIST_DIR}/KovManPages.cmake)

# Programs install without naming a component: they go into the tools package.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)
