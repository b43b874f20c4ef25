# What every target of this project is compiled with. In a unit of several files gcc takes each for a header,
# where an unnamed namespace would be a mistake.
add_library(zfd_options INTERFACE)
target_compile_features(zfd_options INTERFACE cxx_std_20)
target_compile_options(zfd_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${CMAKE_UNITY_BUILD}>>:-Wno-subobject-linkage>
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(ZFD_SANITIZE)
    target_compile_options(zfd_options INTERFACE -fsanitize=${ZFD_SANITIZE}
        -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(zfd_options INTERFACE -fsanitize=${ZFD_SANITIZE})
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# With ZFD_PRECOMPILE_HEADERS the standard library and whatever else is named is read once a target. Every file
# includes what it needs all the same: clang-tidy reads each by itself.
function(zfd_precompile target)
    if(ZFD_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} PRIVATE <algorithm> <atomic> <chrono> <condition_variable> <deque>
            <functional> <map> <memory> <mutex> <string> <thread> <vector> ${ARGN})
    endif()
endfunction()

# Takes what was precompiled for another target: a program what was for a program, both with the same options.
function(zfd_precompile_as target other)
    if(ZFD_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} REUSE_FROM ${other})
    endif()
endfunction()

# For a file that takes long to optimise, to no use. It stands by itself, since options are a unit's.
function(zfd_leave_unoptimised file)
    set_source_files_properties(${file} PROPERTIES COMPILE_OPTIONS -O0
        SKIP_UNITY_BUILD_INCLUSION ON SKIP_PRECOMPILE_HEADERS ON)
endfunction()
