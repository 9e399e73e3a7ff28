# Installs the library and builds a program with what was installed, both ways.

cmake_minimum_required(VERSION 3.21)

function(must)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN}\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
must(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

# As README says, with what pkg-config would say.
file(STRINGS ${WORK}/prefix/${LIBDIR}/pkgconfig/zelieml.pc lines REGEX "^(Libs|Cflags): ")
if(NOT lines MATCHES "-lzelieml" OR NOT lines MATCHES "-I")
  message(FATAL_ERROR "zelieml.pc: ${lines}")
endif()
separate_arguments(flags NATIVE_COMMAND "${CFLAGS}")
set(path LD_LIBRARY_PATH=${WORK}/prefix/${LIBDIR})  # as for any library outside the system's folders
if(lines MATCHES "-rpath")
  set(path)
endif()
string(REGEX REPLACE ".*Libs: ([^;]*).*" "\\1" libs "${lines}")
string(REPLACE "\${libdir}" "${WORK}/prefix/${LIBDIR}" libs "${libs}")
separate_arguments(libs UNIX_COMMAND "${libs}")
must(${CC} ${flags} ${EXAMPLE} ${MAIN} -o ${WORK}/by_hand -I${WORK}/prefix/include ${libs})
must(${CMAKE_COMMAND} -E env ${path} ${WORK}/by_hand)

# The archive, with what pkg-config adds for it.
file(STRINGS ${WORK}/prefix/${LIBDIR}/pkgconfig/zelieml.pc private REGEX "^Libs.private: ")
string(REGEX REPLACE "^Libs.private: " "" private "${private}")
separate_arguments(private UNIX_COMMAND "${private}")
must(${CC} ${flags} ${EXAMPLE} ${MAIN} -o ${WORK}/static -I${WORK}/prefix/include
     ${WORK}/prefix/${LIBDIR}/libzelieml.a ${private})
must(${WORK}/static)

if(NOT EXISTS ${WORK}/prefix/include/zelieml/module.modulemap)
  message(FATAL_ERROR "no module map")
endif()

foreach(page IN ITEMS zelieml zelieml_posting eml_post test_pop_auth eml_receive_mails)
  if(NOT EXISTS ${WORK}/prefix/${MANDIR}/man3/${page}.3)
    message(FATAL_ERROR "no manual page ${page}(3)")
  endif()
endforeach()

file(WRITE ${WORK}/user/CMakeLists.txt "
cmake_minimum_required(VERSION 3.21)
project(user LANGUAGES C CXX)
find_package(zelieml 1.0 REQUIRED)
add_executable(user ${EXAMPLE} ${MAIN})
target_link_libraries(user PRIVATE zelieml::zelieml)
")
must(${CMAKE_COMMAND} -G ${GENERATOR} -S ${WORK}/user -B ${WORK}/user/build
     -DCMAKE_PREFIX_PATH=${WORK}/prefix "-DCMAKE_C_FLAGS=${CFLAGS}" "-DCMAKE_CXX_FLAGS=${CFLAGS}")
must(${CMAKE_COMMAND} --build ${WORK}/user/build)
must(${WORK}/user/build/user)
