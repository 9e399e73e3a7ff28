# macho.cmake - CMake toolchain: Debian's clang and lld make macOS binaries
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=tests/macos/macho.cmake -DMACHO_ARCHITECTURE=x86_64 ...
#
# With the declarations and symbol lists of sdk/ and Debian's libc++ headers. lld links x86_64 and
# arm64; nothing here links i386, but its archive can be made. What comes out is for looking into,
# not for running.

set(llvm 14)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${MACHO_ARCHITECTURE})
set(CMAKE_OSX_ARCHITECTURES ${MACHO_ARCHITECTURE} CACHE STRING "")
if(MACHO_ARCHITECTURE STREQUAL "arm64")
  set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0 CACHE STRING "")
else()
  set(CMAKE_OSX_DEPLOYMENT_TARGET 10.9 CACHE STRING "")
endif()
set(CMAKE_OSX_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/sdk CACHE PATH "")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACHO_ARCHITECTURE)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # there is no C runtime for programs

set(target ${MACHO_ARCHITECTURE}-apple-macosx${CMAKE_OSX_DEPLOYMENT_TARGET})
set(CMAKE_C_COMPILER clang-${llvm})
set(CMAKE_CXX_COMPILER clang++-${llvm})
set(CMAKE_C_COMPILER_TARGET ${target})
set(CMAKE_CXX_COMPILER_TARGET ${target})
string(JOIN " " CMAKE_CXX_FLAGS_INIT
  -Qunused-arguments -nostdinc++ -isystem ${CMAKE_CURRENT_LIST_DIR}/libcxx
  -isystem /usr/lib/llvm-${llvm}/include/c++/v1)
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -stdlib=libc++")

# CMake's own choice on a Mac; elsewhere it does not know the system's version, and so not whether
# the system knows @rpath.
set(CMAKE_BUILD_WITH_INSTALL_NAME_DIR ON)
set(CMAKE_INSTALL_NAME_DIR @rpath)

foreach(tool IN ITEMS AR RANLIB NM OBJDUMP STRIP LIPO INSTALL_NAME_TOOL)
  string(TOLOWER ${tool} program)
  string(REPLACE _ - program ${program})
  set(CMAKE_${tool} llvm-${program}-${llvm})
endforeach()
