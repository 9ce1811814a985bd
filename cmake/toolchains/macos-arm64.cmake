# Builds the adapter for macOS 11 on Apple silicon from Linux, with Debian's clang-19 and
# ld64.lld-19 (packages clang-19, lld-19, llvm-19). The macOS SDK is not part of the tree:
#   cmake -S . -B build/macos -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/macos-arm64.cmake -DCMAKE_OSX_SYSROOT=/path/to/MacOSX.sdk
# Only the product is built: the tests need a Mac to run.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# Darwin 20 is macOS 11.
set(CMAKE_SYSTEM_VERSION 20.0)
set(CMAKE_OSX_ARCHITECTURES arm64 CACHE STRING "Architectures of the macOS build")
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0 CACHE STRING "Oldest macOS the adapter runs on")

# try_compile projects see the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_OSX_SYSROOT VST_ADAPTER_LLVM_SUFFIX)
set(VST_ADAPTER_LLVM_SUFFIX "-19" CACHE STRING "Version suffix of the clang and LLVM tools")
if(NOT CMAKE_OSX_SYSROOT OR NOT IS_DIRECTORY "${CMAKE_OSX_SYSROOT}")
  message(FATAL_ERROR "Give the macOS SDK folder with -DCMAKE_OSX_SYSROOT=/path/to/MacOSX.sdk")
endif()

set(triple arm64-apple-macos11)
find_program(vst_adapter_clang clang${VST_ADAPTER_LLVM_SUFFIX} REQUIRED)
find_program(vst_adapter_clangxx clang++${VST_ADAPTER_LLVM_SUFFIX} REQUIRED)
set(CMAKE_C_COMPILER ${vst_adapter_clang})
set(CMAKE_CXX_COMPILER ${vst_adapter_clangxx})
set(CMAKE_OBJCXX_COMPILER ${vst_adapter_clangxx})
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${triple})
endforeach()

# C++ against the SDK's own libc++ headers, which match the Mac's C++ library and carry its
# availability marks. Without this, clang puts LLVM's libc++ headers (Debian's libc++-19-dev)
# ahead of them whenever they are installed.
set(sdk_cxx_flags "-nostdinc++ -isystem \"${CMAKE_OSX_SYSROOT}/usr/include/c++/v1\"")
set(CMAKE_CXX_FLAGS_INIT "${sdk_cxx_flags}")
set(CMAKE_OBJCXX_FLAGS_INIT "${sdk_cxx_flags}")

# GNU ar cannot index Mach-O objects; the LLVM tools can.
find_program(CMAKE_AR llvm-ar${VST_ADAPTER_LLVM_SUFFIX} REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib${VST_ADAPTER_LLVM_SUFFIX} REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool${VST_ADAPTER_LLVM_SUFFIX})
find_program(vst_adapter_ld64 ld64.lld${VST_ADAPTER_LLVM_SUFFIX} REQUIRED)
# The linker version tells clang to pass -platform_version, which ld64.lld understands.
set(linker_flags "--ld-path=${vst_adapter_ld64} -mlinker-version=711")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linker_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linker_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${linker_flags}")

# Headers, libraries and frameworks come from the SDK only; build tools from this machine.
set(CMAKE_FIND_ROOT_PATH "${CMAKE_OSX_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_OSX_SYSROOT}/usr/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_OSX_SYSROOT}")
set(CMAKE_FIND_FRAMEWORK FIRST)

set(VST_ADAPTER_BUILD_TESTS OFF CACHE BOOL "The tests run on a Mac only")
set(VST_ADAPTER_BUILD_BENCH OFF CACHE BOOL "The benchmarks run on a Mac only")
