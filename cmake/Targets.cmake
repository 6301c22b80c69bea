# SPDX-License-Identifier: Apache-2.0
# What the targets of this project have in common: warnings, sanitizers, and the
# shape of a run-time library.

add_library(tavdb_warnings INTERFACE)
target_compile_options(tavdb_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wclass-memaccess>
  $<$<BOOL:${TAVDB_WERROR}>:-Werror>)

# Functions and data that nothing uses leave a library; sanitizers need them and
# leave symbols open that their run-time library defines.
set(tavdb_trim_compile -ffunction-sections -fdata-sections)
set(tavdb_trim_link -Wl,--gc-sections -Wl,-z,defs)
if(TAVDB_SANITIZE)
  set(tavdb_trim_compile)
  set(tavdb_trim_link)
  if(TAVDB_SANITIZE STREQUAL trap)
    add_compile_options(-fsanitize=undefined -fno-sanitize=vptr -fsanitize-undefined-trap-on-error)
  else()
    add_compile_options(-fsanitize=${TAVDB_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${TAVDB_SANITIZE})
  endif()
  add_compile_options(-fno-omit-frame-pointer -g1)
endif()

# What ships checks itself: calls whose stack was overwritten end the process, as do copies
# that libc sees overrun their destination, and addresses are bound before anything runs.
# Libc's checks need an optimising compiler, and sanitizers have their own.
add_library(tavdb_hardening INTERFACE)
target_compile_options(tavdb_hardening INTERFACE -fstack-protector-strong)
target_link_options(tavdb_hardening INTERFACE -Wl,-z,relro -Wl,-z,now)
if(NOT TAVDB_SANITIZE)
  target_compile_options(tavdb_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

# The fuzzer learns from what the code does.
if(TAVDB_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# A shared library with a C interface: C++20 without exceptions, RTTI and the C++
# run-time library, so that libc is all it needs besides other libraries here.
# The C compiler links it, which is what keeps libstdc++ out. The types in its debug
# information are what its binary interface is checked by; packages are stripped.
#   tavdb_runtime_library(target EXPORT name MAP version_script SUMMARY text [NEEDS target...] SOURCES file...)
# EXPORT: others link tavdb::name. NEEDS: other run-time libraries that it calls.
function(tavdb_runtime_library target)
  cmake_parse_arguments(arg "" "EXPORT;MAP;SUMMARY" "NEEDS;SOURCES" ${ARGN})
  set(version_script ${CMAKE_CURRENT_SOURCE_DIR}/${arg_MAP})
  add_library(${target} SHARED ${arg_SOURCES})
  add_library(tavdb::${arg_EXPORT} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${arg_EXPORT}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE C
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${version_script})
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-asynchronous-unwind-tables>
    -g $<$<CXX_COMPILER_ID:GNU>:-fstack-usage>
    ${tavdb_trim_compile})
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${version_script} -Wl,--as-needed ${tavdb_trim_link})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${target} PRIVATE ${arg_NEEDS} tavdb_warnings tavdb_hardening)
  tavdb_install_runtime_library(${target} "${arg_SUMMARY}" "${arg_NEEDS}")
endfunction()
