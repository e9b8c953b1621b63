# SPDX-License-Identifier: Apache-2.0
# Fails when a shared library exports what it should not. Templates of the standard library are weak
# and exported wherever they are used; every other name must be one of ours, and a marked one.
#   cmake -DNM=... -DLIBRARY=... -DALLOWED=regex -DREQUIRED=regex -P CheckExports.cmake
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY} OUTPUT_VARIABLE names RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
if(NOT names MATCHES "${REQUIRED}")
  message(FATAL_ERROR "${LIBRARY}: exports nothing that matches ${REQUIRED}")
endif()
# Brackets and semicolons would be taken for list syntax.
string(REGEX REPLACE "[][;]" "_" names "${names}")
string(REPLACE "\n" ";" names "${names}")
set(stray "")
foreach(line IN LISTS names)
  # address, kind, name
  if(NOT line MATCHES "^[0-9a-f]+ ([A-Za-z]) (.*)$")
    continue()
  endif()
  set(kind "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  string(REGEX REPLACE "^(vtable|typeinfo|typeinfo name|guard variable|VTT) for " "" name "${name}")
  if(kind MATCHES "[WVu]" AND name MATCHES "std::")
    continue()
  endif()
  if(NOT name MATCHES "${ALLOWED}" OR name MATCHES "Container::")
    string(APPEND stray "  ${line}\n")
  endif()
endforeach()
if(stray)
  message(FATAL_ERROR "${LIBRARY}: exports more than it should\n${stray}")
endif()
