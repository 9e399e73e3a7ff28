# For what systems and processors the library is built on macOS; elsewhere this sets nothing.
#
# The tests and tools are built for the machine that builds them, as CMake does by itself. The
# library is meant for others, so it runs on macOS 10.9 and has every architecture that the SDK can
# link: x86_64 and i386 up to the SDK of 10.13, x86_64 and arm64 from that of 11. Clang raises the
# oldest system of an arm64 slice to 11.0 by itself. CMAKE_OSX_DEPLOYMENT_TARGET and
# CMAKE_OSX_ARCHITECTURES, when given, come first.
#
# Sets ZELIEML_ARCHITECTURES, properties for a target of the library.

set(ZELIEML_ARCHITECTURES)
if(NOT APPLE)
  return()
endif()

if(NOT CMAKE_OSX_DEPLOYMENT_TARGET)
  set(CMAKE_OSX_DEPLOYMENT_TARGET 10.9)
endif()

# A sanitizer brings libraries of its own, which lack the older architectures.
if(CMAKE_OSX_ARCHITECTURES OR ZELIEML_SANITIZE)
  return()
endif()

include(CheckCXXSourceCompiles)
set(architectures)
foreach(architecture IN ITEMS x86_64 i386 arm64)
  set(CMAKE_REQUIRED_FLAGS "-arch ${architecture}")
  check_cxx_source_compiles([[
    #include <string>
    int main(int, char** arguments) { return std::string(arguments[0]).empty() ? 1 : 0; }
    ]] ZELIEML_CAN_LINK_${architecture})
  if(ZELIEML_CAN_LINK_${architecture})
    list(APPEND architectures ${architecture})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
if(architectures)
  list(JOIN architectures "\\;" escaped)
  set(ZELIEML_ARCHITECTURES OSX_ARCHITECTURES "${escaped}")
endif()
