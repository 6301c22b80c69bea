# SPDX-License-Identifier: Apache-2.0
# The OS wrapper exports its interface and nothing else.
set(expected
  dbs_me_debug_trace
  dbs_me_syserr_notify_system_error
  dbs_me_syserr_notify_system_error_async
  tavOSWCreateCountSem
  tavOSWCreateEventSem
  tavOSWCreateMutexSem
  tavOSWMutexAbandoned
  tavOSWOrgFreeMemPart
  tavOSWPostCountSem
  tavOSWPostEventSem
  tavOSWReleaseMutexSem
  tavOSWRequestMutexSem
  tavOSWSemAnnounce
  tavOSWSubAllocMem
  tavOSWWaitCountSem
  tavOSWWaitEventSem)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]* [^A] [^\n]+" lines "${listing}")
set(found)
foreach(line IN LISTS lines)
  string(REGEX REPLACE ".* ([^ @]+)(@.*)?$" "\\1" name "${line}")
  list(APPEND found ${name})
endforeach()
list(SORT found)
if(NOT found STREQUAL expected)
  message(FATAL_ERROR "exported: ${found}\nexpected: ${expected}")
endif()
