# What the tests with other projects share. EXAMPLE and MAIN are the program, CC and
# CFLAGS, GENERATOR and PKG_CONFIG the tools.

# must(command...) - its output, as one line, is in `output`
function(must)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# must_have(folder file...) - these files and no others, given relative to the folder
function(must_have folder)
  file(GLOB_RECURSE files RELATIVE ${folder} ${folder}/*)
  if(NOT files STREQUAL "${ARGN}")
    message(FATAL_ERROR "${folder} has ${files}, not ${ARGN}")
  endif()
endfunction()

# must_build(program libdir options...) - the program, with what pkg-config says of the package in libdir
function(must_build program libdir)
  must(${CMAKE_COMMAND} -E env --unset=PKG_CONFIG_SYSROOT_DIR PKG_CONFIG_PATH=${libdir}/pkgconfig
       ${PKG_CONFIG} ${ARGN} --cflags --libs zelieml)
  separate_arguments(said UNIX_COMMAND "${output}")
  separate_arguments(flags NATIVE_COMMAND "${CFLAGS}")
  must(${CC} ${flags} ${EXAMPLE} ${MAIN} -o ${program} ${said})
  # As for any library outside the system's folders, unless pkg-config has said where it is.
  set(path LD_LIBRARY_PATH=${libdir})
  if(output MATCHES "-rpath")
    set(path)
  endif()
  must(${CMAKE_COMMAND} -E env ${path} ${program})
endfunction()

# must_be_usable(prefix libdir work) - what is installed in prefix, its libraries in libdir. Takes the
# shared library away at the end.
function(must_be_usable prefix libdir work)
  must(${CMAKE_COMMAND} -G ${GENERATOR} -S ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/user -B ${work}/user
       -DFROM=package -DEXAMPLE=${EXAMPLE} -DMAIN=${MAIN} -Dzelieml_DIR=${libdir}/cmake/zelieml
       -DCMAKE_C_COMPILER=${CC} "-DCMAKE_C_FLAGS=${CFLAGS}")
  must(${CMAKE_COMMAND} --build ${work}/user)
  must(${work}/user/with_shared)
  must(${work}/user/with_static)

  must_build(${work}/with_shared ${libdir})
  file(GLOB shared ${libdir}/libzelieml.so* ${libdir}/libzelieml*.dylib)
  file(REMOVE ${shared})
  must_build(${work}/with_static ${libdir} --static)
endfunction()
