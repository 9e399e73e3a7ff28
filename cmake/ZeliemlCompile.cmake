# How every target of the project is compiled: warnings, sanitizers, the language level.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# 32-bit Linux: times after 2038, and directories whose file numbers need 64 bits.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

set(ZELIEML_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(ZELIEML_WERROR)
  list(APPEND ZELIEML_WARNINGS -Werror)
endif()

if(ZELIEML_SANITIZE)
  add_compile_options(-fsanitize=${ZELIEML_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ZELIEML_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND ZELIEML_SANITIZE MATCHES "undefined"
     AND NOT ZELIEML_SANITIZE MATCHES "fuzzer")
    # Programs in C, of which the fuzz targets are none, would have to be linked with the runtime of
    # C++ for these two.
    add_compile_options(-fno-sanitize=vptr,function)
  endif()
endif()

# zelieml_compile(target) - the project's warnings for a target
function(zelieml_compile target)
  target_compile_options(${target} PRIVATE ${ZELIEML_WARNINGS})
endfunction()

# zelieml_compile_small(target) - the same for installed programs, which are never in a hurry
#
# Small code also takes less time to compile, and so do line numbers without the rest of what a
# debugger wants. Debug builds, the sanitizers' among them, are left alone.
function(zelieml_compile_small target)
  zelieml_compile(${target})
  target_compile_options(${target} PRIVATE
    "$<$<CONFIG:Release,RelWithDebInfo>:-Os>" "$<$<CONFIG:RelWithDebInfo>:-g1>")
endfunction()

# zelieml_compile_quickly(target) - the same for what is run on the developer's machine only
#
# Tests: optimising them takes most of the time of a build. In the default build type they have line
# numbers for traces and no more; the library and the programs stay as they are shipped.
# Other build types, the sanitizers' among them, are left alone.
function(zelieml_compile_quickly target)
  zelieml_compile(${target})
  target_compile_options(${target} PRIVATE
    "$<$<CONFIG:RelWithDebInfo>:-O0>" "$<$<CONFIG:RelWithDebInfo>:-g1>")
endfunction()
