# Installs the library and the programs elsewhere than they were configured for, runs these, and
# builds programs with what was installed.

cmake_minimum_required(VERSION 3.21)
include(${CMAKE_CURRENT_LIST_DIR}/users.cmake)

set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
must(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

foreach(page IN ITEMS zelieml zelieml_posting eml_post test_pop_auth eml_receive_mails
             zelieml_ext zelieml_versions eml_version)
  if(NOT EXISTS ${prefix}/${MANDIR}/man3/${page}.3)
    message(FATAL_ERROR "no manual page ${page}(3)")
  endif()
endforeach()
if(TOOLS)
  foreach(file IN ITEMS ${BINDIR}/zelieml ${BINDIR}/zelieml-loopback
               ${MANDIR}/man1/zelieml.1 ${MANDIR}/man1/zelieml-loopback.1
               ${MANDIR}/man5/zelieml-message.5 ${MANDIR}/man5/zelismes.cf.5 ${MANDIR}/man7/zelieml.7
               ${DATADIR}/bash-completion/completions/zelieml ${DATADIR}/zsh/site-functions/_zelieml
               ${DATADIR}/fish/vendor_completions.d/zelieml.fish)
    if(NOT EXISTS ${prefix}/${file})
      message(FATAL_ERROR "no ${file}")
    endif()
  endforeach()
  # It finds the library where both were installed.
  must(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH --unset=DYLD_LIBRARY_PATH
       ${prefix}/${BINDIR}/zelieml --version)
  must(${prefix}/${BINDIR}/zelieml-loopback --seconds 0)
endif()
if(NOT EXISTS ${prefix}/${INCLUDEDIR}/zelieml/module.modulemap)
  message(FATAL_ERROR "no module map")
endif()

# Folders of the machine that built it mean nothing on another.
file(GLOB targets ${prefix}/${LIBDIR}/cmake/zelieml/zelieml-targets*.cmake)
foreach(file IN LISTS targets)
  file(STRINGS ${file} absolute REGEX "[\";]/[a-zA-Z]")
  if(absolute)
    message(FATAL_ERROR "${file}: ${absolute}")
  endif()
endforeach()

must_be_usable(${prefix} ${prefix}/${LIBDIR} ${WORK})
