# The libraries that a library needs are at most these, whatever their versions.
#
#   cmake -DREADELF=... -DLIBRARY=... -DALLOWED="libc;libm" -P needed.cmake

cmake_minimum_required(VERSION 3.21)

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${READELF} failed: ${result}")
endif()

string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" lines "${output}")
if(NOT lines)
  message(FATAL_ERROR "no needed libraries in\n${output}")
endif()
set(unwanted)
foreach(line IN LISTS lines)
  string(REGEX REPLACE ".*\\[([^]]*)\\].*" "\\1" library "${line}")
  string(REGEX REPLACE "\\.so.*" "" name "${library}")
  if(NOT name IN_LIST ALLOWED)
    list(APPEND unwanted ${library})
  endif()
endforeach()
if(unwanted)
  message(FATAL_ERROR "needed: ${unwanted}")
endif()
