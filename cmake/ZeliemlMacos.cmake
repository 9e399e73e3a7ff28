# What is particular to building for macOS; elsewhere this sets nothing.
#
# The tests and tools are built for the machine that builds them, as CMake does by itself. The
# library is meant for others: it is built for every processor that the SDK supports and for the
# oldest macOS that its compiler supports. CMAKE_OSX_ARCHITECTURES, CMAKE_OSX_DEPLOYMENT_TARGET and
# CMAKE_OSX_SYSROOT come first when they are given.
#
# Sets, for the folder that includes it, the SDK and the deployment target, and
# ZELIEML_ARCHITECTURES, properties for a target of the library.

set(ZELIEML_ARCHITECTURES)
if(NOT APPLE)
  return()
endif()

# ---- the SDK

# CMake 4 leaves the choice to the compiler, which then searches /usr/local/include, Homebrew's
# folder on Intel, before the SDK. A name such as macosx becomes a path, where the settings are.
if(NOT CMAKE_OSX_SYSROOT MATCHES "/")
  set(name macosx)
  if(CMAKE_OSX_SYSROOT)
    set(name ${CMAKE_OSX_SYSROOT})
  endif()
  execute_process(COMMAND xcrun --sdk ${name} --show-sdk-path
                  OUTPUT_VARIABLE sdk OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(IS_DIRECTORY "${sdk}")
    set(CMAKE_OSX_SYSROOT ${sdk})
  endif()
endif()

# What the SDK says of itself: nothing before that of macOS 10.14.
set(sdk_archs)
set(sdk_oldest 0)
if(EXISTS "${CMAKE_OSX_SYSROOT}/SDKSettings.json")
  file(READ ${CMAKE_OSX_SYSROOT}/SDKSettings.json settings)
  string(JSON oldest ERROR_VARIABLE error
         GET "${settings}" SupportedTargets macosx MinimumDeploymentTarget)
  if(NOT error)
    set(sdk_oldest ${oldest})
  endif()
  string(JSON archs ERROR_VARIABLE error GET "${settings}" SupportedTargets macosx Archs)
  if(NOT error)
    string(REGEX MATCHALL "[a-z0-9_]+" sdk_archs "${archs}")
  endif()
endif()

# ---- the processors

# zelieml_can_build(result flag...) - whether a small program can be built with these flags
include(CheckCXXSourceCompiles)
function(zelieml_can_build result)
  set(CMAKE_REQUIRED_FLAGS ${ARGN})
  check_cxx_source_compiles([[
    #include <string>
    int main(int, char** arguments) { return std::string(arguments[0]).empty() ? 1 : 0; }
    ]] ${result})
endfunction()

# A sanitizer brings libraries of its own, which lack the older processors.
set(architectures ${CMAKE_OSX_ARCHITECTURES})
if(NOT architectures AND NOT ZELIEML_SANITIZE)
  foreach(architecture IN ITEMS x86_64 i386 arm64)
    if(NOT sdk_archs OR architecture IN_LIST sdk_archs)
      zelieml_can_build(ZELIEML_CAN_LINK_${architecture} "-arch ${architecture}")
      if(ZELIEML_CAN_LINK_${architecture})
        list(APPEND architectures ${architecture})
      endif()
    endif()
  endforeach()
  if(architectures)
    list(JOIN architectures "\\;" escaped)
    set(ZELIEML_ARCHITECTURES OSX_ARCHITECTURES "${escaped}")
  endif()
endif()

# ---- the oldest system

# zelieml_can_build_for(version result flag...) - the same for all processors and this system
function(zelieml_can_build_for version result)
  set(CMAKE_OSX_ARCHITECTURES ${architectures})
  set(CMAKE_OSX_DEPLOYMENT_TARGET ${version})
  string(MAKE_C_IDENTIFIER "ZELIEML_BUILDS_FOR_${version}_${architectures}${ARGN}" known)
  zelieml_can_build(${known} ${ARGN})
  set(${result} ${${known}} PARENT_SCOPE)
endfunction()

# One system for all processors: clang marks an arm64 slice for 11.0 when an older one is asked for.
# A newer C++ library warns of systems that it has given up, with #warning, which -Werror=cpp makes an
# error. It does not warn of all: what is older than the SDK's own minimum may build and not run.
if(CMAKE_OSX_DEPLOYMENT_TARGET)
  set(as_the_library)
  if(ZELIEML_WERROR)
    set(as_the_library -Werror=cpp)
  endif()
  zelieml_can_build_for(${CMAKE_OSX_DEPLOYMENT_TARGET} can_build ${as_the_library})
  if(NOT can_build)
    message(FATAL_ERROR "zelieml: the compiler cannot build for macOS "
      "${CMAKE_OSX_DEPLOYMENT_TARGET}, which CMAKE_OSX_DEPLOYMENT_TARGET names. Name a newer one, "
      "leave it empty to get the oldest that can be built for, or use an older Xcode.")
  endif()
  if(CMAKE_OSX_DEPLOYMENT_TARGET VERSION_LESS sdk_oldest)
    message(WARNING "zelieml: the SDK is for macOS ${sdk_oldest} and later; the library may not run "
      "on macOS ${CMAKE_OSX_DEPLOYMENT_TARGET}, which CMAKE_OSX_DEPLOYMENT_TARGET names.")
  endif()
else()
  set(candidates 10.9 10.13 11.0)
  if(architectures STREQUAL "arm64")
    set(candidates 11.0)
  endif()
  if(sdk_oldest VERSION_GREATER 11.0)
    set(candidates ${sdk_oldest})
  endif()
  foreach(candidate IN LISTS candidates)
    if(candidate VERSION_GREATER_EQUAL sdk_oldest)
      zelieml_can_build_for(${candidate} can_build -Werror=cpp)
      if(can_build)
        set(CMAKE_OSX_DEPLOYMENT_TARGET ${candidate})
        break()
      endif()
    endif()
  endforeach()
  if(NOT CMAKE_OSX_DEPLOYMENT_TARGET)
    list(GET candidates -1 newest)
    zelieml_can_build_for(${newest} can_build)
    if(NOT can_build)
      message(FATAL_ERROR "zelieml: the compiler cannot build for macOS ${newest} or older. Set "
        "CMAKE_OSX_DEPLOYMENT_TARGET to the oldest system that it can build for.")
    endif()
    set(CMAKE_OSX_DEPLOYMENT_TARGET ${newest})
    message(WARNING "zelieml: the compiler warns when it builds for macOS ${newest}; the library "
      "may not run there. Set CMAKE_OSX_DEPLOYMENT_TARGET to the oldest system that you need.")
  endif()
endif()
list(JOIN architectures ", " words)
if(NOT words)
  set(words "this machine's processor")
endif()
message(STATUS "zelieml: for macOS ${CMAKE_OSX_DEPLOYMENT_TARGET} and later: ${words}")

# ---- the dylib

# zelieml_finish_dylib(target) - its name and versions; debug symbols beside it, a signature in it
#
# The linker writes down where it found the debug symbols, as paths of this machine. dsymutil
# collects them, and strip removes the paths. A changed file needs a new signature: processors of
# Apple's run no unsigned code. "-" signs it for nobody in particular. Where there is no codesign,
# in a cross build, the linker signs and strip renews the signature.
find_program(ZELIEML_DSYMUTIL dsymutil REQUIRED)
find_program(ZELIEML_CODESIGN codesign)
function(zelieml_finish_dylib target)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION_MAJOR} SOVERSION ${PROJECT_VERSION_MAJOR}
    MACHO_CURRENT_VERSION ${PROJECT_VERSION} MACHO_COMPATIBILITY_VERSION 1.0.0)
  set(sign)
  if(ZELIEML_CODESIGN)
    set(sign COMMAND ${ZELIEML_CODESIGN} --force --sign - $<TARGET_FILE:${target}>)
  endif()
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${ZELIEML_DSYMUTIL} $<TARGET_FILE:${target}> -o $<TARGET_FILE:${target}>.dSYM
    COMMAND ${CMAKE_STRIP} -x $<TARGET_FILE:${target}>
    ${sign} VERBATIM)
endfunction()

# zelieml_install_finished(target folder) - after install(TARGETS)
#
# With --strip, CMake has stripped the installed dylib once more, which breaks its signature.
function(zelieml_install_finished target folder)
  install(DIRECTORY $<TARGET_FILE:${target}>.dSYM DESTINATION ${folder})
  if(ZELIEML_CODESIGN)
    set(installed "\${CMAKE_INSTALL_PREFIX}")
    cmake_path(APPEND installed ${folder} $<TARGET_FILE_NAME:${target}>)
    install(CODE "
      set(dylib \"\$ENV{DESTDIR}${installed}\")
      execute_process(COMMAND \"${ZELIEML_CODESIGN}\" --verify \"\${dylib}\"
                      RESULT_VARIABLE unsigned ERROR_QUIET)
      if(unsigned)
        execute_process(COMMAND \"${ZELIEML_CODESIGN}\" --force --sign - \"\${dylib}\"
                        COMMAND_ERROR_IS_FATAL ANY)
      endif()")
  endif()
endfunction()
