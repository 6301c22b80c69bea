# SPDX-License-Identifier: Apache-2.0
# What is installed, and where. Three components, each of which is a package too:
#   runtime      the four shared libraries, the folder of the control table
#   development  headers, tool library, pkg-config and CMake files, examples, documents
#   tools        the command, its manual and completions
# Nothing that is installed holds the prefix: a tree may be moved or be a sysroot.

# On Debian a library lies in a folder of its machine, below every prefix.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of libraries below the prefix")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
foreach(folder LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${folder} must be relative to the prefix, it is ${CMAKE_INSTALL_${folder}}")
  endif()
endforeach()

set(tavdb_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/tavdb)
set(tavdb_example_folder ${CMAKE_INSTALL_DOCDIR}/examples)

# tavdb_pkg_config(name SUMMARY text LIBRARY link-name [INCLUDE folder] [REQUIRES name...] [PRIVATE name...])
function(tavdb_pkg_config name)
  cmake_parse_arguments(arg "" "SUMMARY;LIBRARY;INCLUDE" "REQUIRES;PRIVATE" ${ARGN})
  file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
  set(pc_cflags "-I\${includedir}")
  if(arg_INCLUDE)
    string(PREPEND pc_cflags "-I\${includedir}/${arg_INCLUDE} ")
  endif()
  set(pc_requires "")
  foreach(kind REQUIRES PRIVATE)
    if(arg_${kind})
      list(JOIN arg_${kind} ", " names)
      string(REPLACE "REQUIRES" "Requires" field ${kind})
      string(REPLACE "PRIVATE" "Requires.private" field ${field})
      string(APPEND pc_requires "\n${field}: ${names}")
    endif()
  endforeach()
  set(pc_name ${name})
  set(pc_summary "${arg_SUMMARY}")
  set(pc_library ${arg_LIBRARY})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

function(tavdb_install_runtime_library target summary needs)
  install(TARGETS ${target} EXPORT tavdbTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  list(TRANSFORM needs PREPEND lib)
  tavdb_pkg_config(lib${target} SUMMARY "${summary}" LIBRARY ${target} PRIVATE ${needs})
endfunction()

# The static library of tools: it and its parsers are linked by whoever uses it.
function(tavdb_install_tool_library target)
  install(TARGETS ${target} EXPORT tavdbToolTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavdb COMPONENT development)
  install(EXPORT tavdbToolTargets NAMESPACE tavdb:: DESTINATION ${tavdb_package_folder} COMPONENT development)
  tavdb_pkg_config(libtavdb-tool
    SUMMARY "databases of tavdb, described, built and read by programs"
    LIBRARY tavdb-tool INCLUDE tavdb REQUIRES libtavdb yaml-cpp pugixml)
endfunction()

# Everything that is no target. The command's manual and completions stand in the build;
# where their tools are missing, they are not there and are left out.
function(tavdb_install_files)
  file(GLOB headers ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/include/*.hpp)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tavdbConfig.cmake.in
    ${PROJECT_BINARY_DIR}/tavdbConfig.cmake INSTALL_DESTINATION ${tavdb_package_folder}
    NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavdbConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/tavdbConfig.cmake ${PROJECT_BINARY_DIR}/tavdbConfigVersion.cmake
    DESTINATION ${tavdb_package_folder} COMPONENT development)
  install(EXPORT tavdbTargets NAMESPACE tavdb:: DESTINATION ${tavdb_package_folder} COMPONENT development)

  install(FILES packaging/tavdb.tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME tavdb.conf COMPONENT runtime)
  install(FILES packaging/tavdb.environment DESTINATION ${tavdb_example_folder} COMPONENT runtime)
  install(FILES docs/INSTALL.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
  install(FILES README.md docs/ARCHITECTURE.md docs/ERRORS.md docs/FORMAT.md docs/PLUGINS.md docs/PORTING.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
  install(DIRECTORY examples/ DESTINATION ${tavdb_example_folder} COMPONENT development
    PATTERN CMakeLists.txt EXCLUDE)

  if(TAVDB_BUILD_TOOLS)
    install(FILES docs/COMMAND.md docs/DESCRIPTIONS.md docs/HOOKS.md docs/MEDIA.md
      DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT tools OPTIONAL)
    set(completions ${PROJECT_BINARY_DIR}/completions)
    install(DIRECTORY ${completions}/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
      COMPONENT tools OPTIONAL)
    install(DIRECTORY ${completions}/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
      COMPONENT tools OPTIONAL)
    install(DIRECTORY ${completions}/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
      COMPONENT tools OPTIONAL)
  endif()
endfunction()
