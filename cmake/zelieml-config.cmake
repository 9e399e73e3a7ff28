# The installed package: zelieml::zelieml, the shared library, and zelieml::static.

# What the static library needs on Linux. The shared one can be linked without Nettle's development
# files.
if(NOT APPLE)
  include(CMakeFindDependencyMacro)
  find_dependency(Threads)
  find_library(ZELIEML_NETTLE nettle)
  if(NOT TARGET zelieml::nettle)
    add_library(zelieml::nettle INTERFACE IMPORTED)
    set_target_properties(zelieml::nettle PROPERTIES INTERFACE_LINK_LIBRARIES "${ZELIEML_NETTLE}")
  endif()
endif()

include(${CMAKE_CURRENT_LIST_DIR}/zelieml-targets.cmake)
