# How libraries and programs leave the build tree.

# A library that hosts link: versioned, installed, and showing the symbols of its list only. The list
# holds one mangled name a line, with a "*" where standard libraries differ, and is the single source
# for every linker.
function(zfd_ship_library target exports)
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>"
        LINK_DEPENDS ${exports})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports})

    file(STRINGS ${exports} symbols)
    if(APPLE)
        list(TRANSFORM symbols PREPEND "_")
        list(JOIN symbols "\n" lines)
        set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.exports)
        file(CONFIGURE OUTPUT ${script} CONTENT "${lines}\n" @ONLY)
        set(option LINKER:-exported_symbols_list,${script})
    else()
        list(JOIN symbols ";\n    " lines)
        set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.version)
        file(CONFIGURE OUTPUT ${script} CONTENT "{\nglobal:\n    ${lines};\nlocal:\n    *;\n};\n" @ONLY)
        set(option LINKER:--version-script=${script})
    endif()
    target_link_options(${target} PRIVATE ${option})

    install(TARGETS ${target} EXPORT ZFdClientMgrTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

# A program, with its man page where docs/man has one.
function(zfd_ship_program target)
    file(RELATIVE_PATH libs ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${target} PROPERTIES
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>/${libs}")
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    if(EXISTS ${PROJECT_SOURCE_DIR}/docs/man/${target}.1)
        install(FILES ${PROJECT_SOURCE_DIR}/docs/man/${target}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
endfunction()

# Headers, and what find_package and pkg-config read.
function(zfd_ship_package)
    include(CMakePackageConfigHelpers)
    set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZFdClientMgr)
    set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
    install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

    install(EXPORT ZFdClientMgrTargets NAMESPACE ZFdClientMgr:: DESTINATION ${config_dir})
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZFdClientMgrConfig.cmake.in
        ${PROJECT_BINARY_DIR}/ZFdClientMgrConfig.cmake INSTALL_DESTINATION ${config_dir})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZFdClientMgrConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES ${PROJECT_BINARY_DIR}/ZFdClientMgrConfig.cmake
        ${PROJECT_BINARY_DIR}/ZFdClientMgrConfigVersion.cmake DESTINATION ${config_dir})

    file(RELATIVE_PATH prefix_from_here
        ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/ZFdClientMgr.pc.in
        ${PROJECT_BINARY_DIR}/ZFdClientMgr.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/ZFdClientMgr.pc DESTINATION ${pkgconfig_dir})
endfunction()
