# Builds for macOS on another system, with the clang that scripts/cross-toolchain fetches. It proves
# that the tree compiles and links there; what runs on a Mac is built on a Mac.
set(ZFD_MACOS_ARCH "aarch64" CACHE STRING "aarch64 or x86_64")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZFD_MACOS_ARCH)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22.0)
set(CMAKE_SYSTEM_PROCESSOR ${ZFD_MACOS_ARCH})
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "The wrapper names the architecture")
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "The wrapper names the target")
set(CMAKE_OSX_SYSROOT "" CACHE STRING "The compiler brings the headers")

get_filename_component(toolchain ${CMAKE_CURRENT_LIST_DIR}/../build/toolchain ABSOLUTE)
if(NOT EXISTS ${toolchain}/bin/${ZFD_MACOS_ARCH}-macos-c++)
    message(FATAL_ERROR "Run scripts/cross-toolchain first: it fetches the compiler.")
endif()
set(CMAKE_CXX_COMPILER ${toolchain}/bin/${ZFD_MACOS_ARCH}-macos-c++)
set(CMAKE_AR ${toolchain}/bin/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${toolchain}/bin/ranlib CACHE FILEPATH "")

# Nothing of this machine's own headers and libraries.
set(CMAKE_FIND_ROOT_PATH ${toolchain}/nothing)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The headers of iconv come with the compiler, the library does not.
set(Iconv_IS_BUILT_IN FALSE)
set(Iconv_INCLUDE_DIR ${CMAKE_CURRENT_LIST_DIR}/macos CACHE PATH "")
set(Iconv_LIBRARY ${CMAKE_CURRENT_LIST_DIR}/macos/libiconv.tbd CACHE FILEPATH "")

# install_name_tool is not there, so nothing may need changing at install time.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_NAME_TOOL ${toolchain}/bin/unused CACHE FILEPATH "")
