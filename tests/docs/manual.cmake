# Every manual page is well formed.

cmake_minimum_required(VERSION 3.21)

file(GLOB pages ${PAGES}/zelieml*.3)
file(GLOB others ${OTHERS}/*.[157])
list(LENGTH pages count)
list(LENGTH others count_of_others)
if(count LESS 11 OR count_of_others LESS 5)
  message(FATAL_ERROR "only ${count} pages in ${PAGES}, ${count_of_others} in ${OTHERS}")
endif()
execute_process(COMMAND ${MANDOC} -T lint -W warning ${pages} ${others}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${output}")
endif()
