# The program as users install it, beside the library.

if(NOT ZELIEML_INSTALL OR NOT ZELIEML_TOOLS)
  return()
endif()
install(TARGETS zelieml-program RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The installed program finds the library from its own place. Not so in /usr, where every program
# finds it; nor when the builder says where it is, or sets CMAKE_SKIP_INSTALL_RPATH.
if(NOT DEFINED CMAKE_INSTALL_RPATH AND (APPLE OR NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr"))
  set(origin "$ORIGIN")
  if(APPLE)
    set(origin "@loader_path")
  endif()
  if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_BINDIR})
    set(rpath ${CMAKE_INSTALL_FULL_LIBDIR})
  else()
    set(there /prefix/${CMAKE_INSTALL_LIBDIR})
    cmake_path(RELATIVE_PATH there BASE_DIRECTORY /prefix/${CMAKE_INSTALL_BINDIR})
    set(rpath ${origin}/${there})
  endif()
  set_target_properties(zelieml-program PROPERTIES INSTALL_RPATH ${rpath})
endif()
