# Every manual page is well formed.

cmake_minimum_required(VERSION 3.21)

file(GLOB pages ${PAGES}/zelieml*.3)
list(LENGTH pages count)
if(count LESS 11)
  message(FATAL_ERROR "only ${count} pages in ${PAGES}")
endif()
execute_process(COMMAND ${MANDOC} -T lint -W warning ${pages}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${output}")
endif()
