# macho.cmake - CMake toolchain: Debian's clang and lld make macOS binaries
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=tests/macos/macho.cmake ...
#
# With the declarations and symbol lists of sdk/, Debian's libc++ headers, and the tools of bin/,
# which have the names that they have on a Mac. lld links x86_64 and arm64, in one universal library;
# nothing here links i386, but its archive can be made (CMAKE_OSX_ARCHITECTURES). What comes out is
# for looking into, not for running.

set(llvm 14)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/sdk CACHE PATH "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # there is no C runtime for programs

set(CMAKE_C_COMPILER clang-${llvm})
set(CMAKE_CXX_COMPILER clang++-${llvm})
set(CMAKE_C_COMPILER_TARGET x86_64-apple-macosx)  # -arch and -mmacosx-version-min come before it
set(CMAKE_CXX_COMPILER_TARGET x86_64-apple-macosx)
set(CMAKE_PROGRAM_PATH ${CMAKE_CURRENT_LIST_DIR}/bin)
set(CMAKE_C_FLAGS_INIT "-Qunused-arguments -B${CMAKE_CURRENT_LIST_DIR}/bin")
string(JOIN " " CMAKE_CXX_FLAGS_INIT ${CMAKE_C_FLAGS_INIT}
  -nostdinc++ -isystem ${CMAKE_CURRENT_LIST_DIR}/libcxx
  -isystem /usr/lib/llvm-${llvm}/include/c++/v1)
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -stdlib=libc++ -Wl,-adhoc_codesign")

# CMake's own choice on a Mac; elsewhere it does not know the system's version, and so not whether
# the system knows @rpath.
set(CMAKE_BUILD_WITH_INSTALL_NAME_DIR ON)
set(CMAKE_INSTALL_NAME_DIR @rpath)

foreach(tool IN ITEMS AR NM OBJDUMP STRIP LIPO INSTALL_NAME_TOOL)
  string(TOLOWER ${tool} program)
  string(REPLACE _ - program ${program})
  set(CMAKE_${tool} llvm-${program}-${llvm})
endforeach()
# Archives of universal objects: made by ar and ranlib on a Mac, not by those of LLVM.
set(CMAKE_CXX_CREATE_STATIC_LIBRARY "llvm-libtool-darwin-${llvm} -static -o <TARGET> <OBJECTS>")
set(CMAKE_RANLIB true)
