# Builds the sources within a project in C, by FetchContent and by add_subdirectory, and installs that
# project, without the library and with it.

cmake_minimum_required(VERSION 3.21)
include(${CMAKE_CURRENT_LIST_DIR}/users.cmake)

file(REMOVE_RECURSE ${WORK})

# must_configure(build options...)
function(must_configure build)
  must(${CMAKE_COMMAND} -G ${GENERATOR} -S ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/user -B ${build}
       -DZELIEML_SOURCE=${SOURCE} -DEXAMPLE=${EXAMPLE} -DMAIN=${MAIN}
       -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}
       ${ARGN})
endfunction()

must_configure(${WORK}/folder -DFROM=folder)

set(build ${WORK}/fetched)
must_configure(${build} -DFROM=fetched)
must(${CMAKE_COMMAND} --build ${build} --parallel 2)
must(${build}/with_shared)
must(${build}/with_static)
must(${CMAKE_COMMAND} --install ${build} --prefix ${WORK}/alone)
must_have(${WORK}/alone bin/with_static)
foreach(not_asked_for IN ITEMS compile_commands.json _deps/zelieml-build/docs/man)
  if(EXISTS ${build}/${not_asked_for})
    message(FATAL_ERROR "${not_asked_for} was made")
  endif()
endforeach()

# must_install(name libdir includedir) - into a prefix of its own, its folders relative or absolute
function(must_install name libdir includedir)
  set(prefix ${WORK}/${name}/prefix)
  must_configure(${build} -DZELIEML_INSTALL=ON
                 -DCMAKE_INSTALL_LIBDIR=${libdir} -DCMAKE_INSTALL_INCLUDEDIR=${includedir})
  must(${CMAKE_COMMAND} --build ${build} --parallel 2)
  must(${CMAKE_COMMAND} --install ${build} --prefix ${prefix})
  cmake_path(ABSOLUTE_PATH libdir BASE_DIRECTORY ${prefix})
  must_be_usable(${prefix} ${libdir} ${WORK}/${name})
endfunction()
must_install(lib64 lib64 include)
must_install(multiarch lib/some-linux-gnu include/zelieml-1)
must_install(absolute ${WORK}/elsewhere/lib ${WORK}/elsewhere/include)
