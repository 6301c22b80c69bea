# SPDX-License-Identifier: Apache-2.0
# The OS wrapper needs the C library and nothing else.
execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" needed "${listing}")
if(NOT needed MATCHES "^\\(NEEDED\\)[^;]*libc\\.so[^;]*$")
  message(FATAL_ERROR "needed: ${needed}")
endif()
