# The dynamic symbols that a library defines are those of the list, no more and no fewer.
#
#   cmake -DNM=... -DNM_OPTIONS=... -DLIBRARY=... -DPREFIX=... -DEXPORTS=... -P exports.cmake
#
# PREFIX is what the system puts before the names of C.

cmake_minimum_required(VERSION 3.21)

execute_process(COMMAND ${NM} ${NM_OPTIONS} ${LIBRARY}
                OUTPUT_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed: ${result}")
endif()

# A library for several processors has a section for each of them, with a heading.
string(REGEX MATCHALL "[0-9a-f]+ [A-Za-z] [^\n]+" lines "${output}")
list(REMOVE_DUPLICATES lines)
set(exported)
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^.* ${PREFIX}" "" name "${line}")
  list(APPEND exported ${name})
endforeach()
file(STRINGS ${EXPORTS} wanted REGEX "^[A-Za-z_]")
list(LENGTH wanted count)
if(count LESS 30)
  message(FATAL_ERROR "only ${count} names in ${EXPORTS}")
endif()

set(unwanted ${exported})
set(missing ${wanted})
list(REMOVE_ITEM unwanted ${wanted})
if(exported)
  list(REMOVE_ITEM missing ${exported})
endif()
if(unwanted OR missing)
  message(FATAL_ERROR "exported but not in the list: ${unwanted}\nnot exported: ${missing}")
endif()
