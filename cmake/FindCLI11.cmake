# CLI11 is headers only. A cross build takes those of this machine, and nothing else from their folder.
find_path(CLI11_HEADERS CLI/CLI.hpp NO_CMAKE_FIND_ROOT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CLI11 REQUIRED_VARS CLI11_HEADERS)

if(CLI11_FOUND AND NOT TARGET CLI11::CLI11)
    set(include_dir ${CLI11_HEADERS})
    if(CMAKE_CROSSCOMPILING)
        set(include_dir ${CMAKE_BINARY_DIR}/cli11)
        file(COPY ${CLI11_HEADERS}/CLI DESTINATION ${include_dir})
    endif()
    add_library(CLI11::CLI11 INTERFACE IMPORTED)
    set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${include_dir})
endif()
