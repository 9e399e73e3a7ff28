# Every manual page is well formed.

cmake_minimum_required(VERSION 3.21)

file(GLOB pages ${PAGES}/zelieml*.3)
file(GLOB programs ${PROGRAMS}/*.1)
list(LENGTH pages count)
list(LENGTH programs count_of_programs)
if(count LESS 11 OR count_of_programs LESS 2)
  message(FATAL_ERROR "only ${count} pages in ${PAGES}, ${count_of_programs} in ${PROGRAMS}")
endif()
execute_process(COMMAND ${MANDOC} -T lint -W warning ${pages} ${programs}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${output}")
endif()
